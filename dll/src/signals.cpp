/* SPDX-License-Identifier: MIT
 *
 * See signals.h. */
#include "signals.h"

pthread_t host::main_thread;
bool host::ending;

namespace {
bool put_off; /* a SIGUSR2 waits until the handler that it interrupted has returned */
}

bool put_off_on_top(void)
{
    sigset_t now;
    sigprocmask(SIG_BLOCK, nullptr, &now);
    if (sigismember(&now, SIGTERM) != 1) return false;
    __atomic_store_n(&put_off, true, __ATOMIC_RELAXED);
    return true;
}

sigset_t blocked_at_start(void)
{
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGINT);
    sigaddset(&blocked, SIGUSR1);
    sigaddset(&blocked, SIGUSR2);
    sigaddset(&blocked, SIGIO);
    sigaddset(&blocked, SIGALRM);
    return blocked;
}

sigset_t blocked_while_idle(void)
{
    sigset_t blocked = blocked_at_start();
    sigdelset(&blocked, SIGUSR2);
    sigdelset(&blocked, SIGTERM);
    return blocked;
}

sigset_t blocked_in_callback(void)
{
    sigset_t blocked = blocked_while_idle();
    sigdelset(&blocked, SIGUSR1);
    return blocked;
}

void install(int signal, void (*handler)(int), struct sigaction *previous)
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, previous);
}

void wait_for_signals(const sigset_t *blocked)
{
    for (;;) {
        sigsuspend(blocked);
        if (__atomic_exchange_n(&put_off, false, __ATOMIC_RELAXED)) raise(SIGUSR2);
    }
}
