/* SPDX-License-Identifier: MIT
 *
 * The host's signals, as the call handler and the call-back's handler share them: which thread acts on one, which one
 * has to wait, the wait itself, and the way back to it. */
#ifndef KA_SIGNALS_H
#define KA_SIGNALS_H

#include <pthread.h>
#include <signal.h>

#include "frame.h"

/* In a namespace: linked statically, the host shares plain names with the module. */
namespace host {
extern pthread_t main_thread; /* set when main begins */
extern bool ending;           /* the block is being detached, or has been */
extern bool called_back;      /* the call in progress has waited for an answer, which has changed its mask */
} // namespace host

/* The kernel delivers a signal of the process to any thread that lets it in. True: this was the wrong one, and the
   right one has the signal now. (After a fork in a thread there is no right one: then the thread at hand acts.) */
inline bool passed_on(int signal, pthread_t owner)
{
    return pthread_equal(pthread_self(), owner) == 0 && pthread_kill(owner, signal) == 0;
}

/* Puts the signal at hand off, and is true, where SIGTERM is blocked: the wait raises it anew. noinline: its local
   mask must not become one of the handler's (see THIS_FRAME). */
[[gnu::noinline]] bool put_off_on_top(void);

/* Asked by a handler of SIGUSR2. On top of a handler that blocks SIGTERM, which no wait does, it does not act upon
   the signal: if that one is the host's own, the end goes on; if it is one of the module's, it comes back to the
   wait. For a handler that interrupts the wait itself the frame has the mask from before the wait. So without SIGTERM
   in the frame there is no handler below, and no system call is spent on the question; with it, a module may have
   blocked it itself. */
inline bool must_wait(const t_FRAME *frame)
{
    return may_block_sigterm(frame) && put_off_on_top();
}

/* The same where the handler is given the context itself: installed with SA_SIGINFO, its frame is another. */
inline bool must_wait(const ucontext_t *interrupted)
{
    return sigismember(&interrupted->uc_sigmask, SIGTERM) == 1 && put_off_on_top();
}

/* previous may be null. */
void install(int signal, void (*handler)(int), struct sigaction *previous);

/* Blocked when main begins: those that somebody may send who does not know what the process is, and SIGUSR2, which
   must not come before the host can answer. */
sigset_t blocked_at_start(void);

/* Blocked while the host waits for calls: the same without SIGUSR2. SIGTERM, for which it waits as well, is in none
   of the sets. */
sigset_t blocked_while_idle(void);

/* Blocked while a function waits for the answer to its call-back: the same without SIGUSR1. */
sigset_t blocked_in_callback(void);

/* Lets signals in, except those of blocked, for as long as it takes. */
[[noreturn]] void wait_for_signals(const sigset_t *blocked);

/* The same for calls. Before each of these waits look is called, for calls that come without a signal; not where the
   alternate stack is one that only a handler takes away. */
[[noreturn]] void wait_for_calls(void (*look)(void));

/* The two ends of a call in its handler. The first is true where the handler can be left by a jump back to that wait,
   and then the second does so; else it is left by its return, which is a system call, and a slow one in a 32-bit
   process. */
bool comes_from_wait(const t_INTERRUPTED &interrupted);
[[noreturn]] void jump_to_wait(void);

/* For a call without a signal, which is performed above main's frame: a function finds the mask, the alternate stack
   and the arithmetic that it would find in the handler. What a function leaves is set back by the first before
   another call, and by the last after each. */
void prepare_quiet_calls(void);
void begin_quiet_call(void);
void end_quiet_call(void);

#endif
