/* SPDX-License-Identifier: MIT
 *
 * See thread.h. */
#include "thread.h"

#include <sched.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

/* 0 before it is asked for. In the initial TLS block, because a handler may not allocate. */
__attribute__((tls_model("initial-exec"))) static thread_local pid_t thread_id;

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

/* Asking the kernel each time would be a tenth of what the wait for a reply costs. */
pid_t own_thread(void)
{
    if (thread_id == 0) thread_id = gettid();
    return thread_id;
}

void forget_own_thread(void)
{
    thread_id = 0;
}

void let_another_finish(int attempts)
{
    constexpr struct timespec moment = {0, 20000};
    if (attempts < 100)
        sched_yield();
    else
        clock_nanosleep(CLOCK_MONOTONIC, 0, &moment, nullptr);
}
