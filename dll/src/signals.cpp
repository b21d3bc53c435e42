/* SPDX-License-Identifier: MIT
 *
 * See signals.h. */
#include "signals.h"

pthread_t main_thread;
bool ending;

bool passed_on(int signal, pthread_t owner)
{
    return pthread_equal(pthread_self(), owner) == 0 && pthread_kill(owner, signal) == 0;
}

namespace {

/* Whether SIGTERM is blocked in a handler of SIGUSR2, which no wait does: the handler is then on top of another one.
   For a handler that interrupts the wait itself the frame has the mask from before the wait. So without SIGTERM in
   the frame there is none, and no system call is spent on the question; with it, a module may have blocked it itself.
 */
[[gnu::noinline]] bool sigterm_is_blocked(const t_FRAME *frame)
{
    if ((frame->interrupted.oldmask >> (SIGTERM - 1) & 1) == 0) return false;
    sigset_t now;
    sigprocmask(SIG_BLOCK, nullptr, &now);
    return sigismember(&now, SIGTERM) == 1;
}

bool put_off; /* a SIGUSR2 waits until the handler that it interrupted has returned */

} // namespace

bool must_wait(const t_FRAME *frame)
{
    if (!sigterm_is_blocked(frame)) return false;
    __atomic_store_n(&put_off, true, __ATOMIC_RELAXED);
    return true;
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
