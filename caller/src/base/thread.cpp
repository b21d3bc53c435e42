/* SPDX-License-Identifier: MIT
 *
 * See thread.h. */
#include "thread.h"

#include <signal.h>

/* A thread is born with the signal mask of its creator. */
int create_thread_without_signals(pthread_t *created, size_t stack_bytes, void *(*run)(void *), void *argument)
{
    sigset_t all;
    sigset_t before;
    pthread_attr_t attributes;
    sigfillset(&all);
    int error = pthread_attr_init(&attributes);
    if (error != 0) return error;
    pthread_attr_setstacksize(&attributes, stack_bytes);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    error = pthread_create(created, &attributes, run, argument);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return error;
}
