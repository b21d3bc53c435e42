// SPDX-License-Identifier: MIT
//
// Hooks of a module with a second thread, which does nothing but take the signals that the kernel gives it.
// THREADS_FROM=setup: dll_setup makes it; THREADS_FROM=constructor: a static constructor, before the host has blocked
// anything. dll_cleanup writes its thread; with THREADS_AWAIT_END set it returns only when SIGTERM is pending.
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "ka/dll_module.h"

namespace {

void *idle(void *)
{
    for (;;)
        pause();
}

void make_thread(const char *from)
{
    const char *wanted = getenv("THREADS_FROM");
    pthread_t thread;
    if (wanted != nullptr && strcmp(wanted, from) == 0) pthread_create(&thread, nullptr, idle, nullptr);
}

__attribute__((constructor)) void make_early()
{
    make_thread("constructor");
}

void await_end_signal()
{
    sigset_t pending;
    do {
        const timespec pause = {0, 1000000};
        nanosleep(&pause, nullptr);
        sigpending(&pending);
    } while (sigismember(&pending, SIGTERM) == 0);
}

} // namespace

void dll_setup(void)
{
    make_thread("setup");
}

void dll_cleanup(void)
{
    fprintf(stderr, "cleanup on %s thread\n", gettid() == getpid() ? "the main" : "another");
    if (getenv("THREADS_AWAIT_END") != nullptr) await_end_signal();
}
