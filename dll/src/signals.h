/* SPDX-License-Identifier: MIT
 *
 * The host's signals, as the call handler and the call-back's handler share them: which thread acts on one, which one
 * has to wait, and the wait itself. */
#ifndef KA_SIGNALS_H
#define KA_SIGNALS_H

#include <pthread.h>
#include <signal.h>
#include <ucontext.h>

/* In a namespace: linked statically, the host shares plain names with the module. */
namespace host {
extern pthread_t main_thread; /* set when main begins */
extern bool ending;           /* the block is being detached, or has been */
} // namespace host

/* The kernel delivers a signal of the process to any thread that lets it in. True: this was the wrong one, and the
   right one has the signal now. (After a fork in a thread there is no right one: then the thread at hand acts.) */
inline bool passed_on(int signal, pthread_t owner)
{
    return pthread_equal(pthread_self(), owner) == 0 && pthread_kill(owner, signal) == 0;
}

/* What the kernel puts above the return address of a handler installed without SA_SIGINFO; the mask in it comes into
   force when the handler returns. */
#if defined(__x86_64__)
struct t_FRAME {
    ucontext_t interrupted;
};
#elif defined(__i386__)
struct t_FRAME {
    int signal;
    struct sigcontext interrupted; /* oldmask holds signals 1 to 32 */
};
#else
struct t_FRAME; /* not known: the system is asked each time */
#endif

/* Whether SIGTERM is in that mask. */
inline bool blocks_sigterm([[maybe_unused]] const t_FRAME *frame)
{
#if defined(__x86_64__)
    return sigismember(&frame->interrupted.uc_sigmask, SIGTERM) == 1;
#elif defined(__i386__)
    return (frame->interrupted.oldmask >> (SIGTERM - 1) & 1) != 0;
#else
    return true;
#endif
}

/* The frame of the handler that says this. Two rules keep it the kernel's: the handler itself has no local variable
   that needs an address (the compiler may realign the stack for one, and then points elsewhere), and one argument
   (the compiler may use an argument's place for its own ends, and never touches what comes after the last one). */
#define THIS_FRAME static_cast<const t_FRAME *>(__builtin_dwarf_cfa())

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
    return blocks_sigterm(frame) && put_off_on_top();
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

/* Blocked while the host waits for calls: the same without the two signals that it waits for. */
sigset_t blocked_while_idle(void);

/* Blocked while a function waits for the answer to its call-back: the same without SIGUSR1. */
sigset_t blocked_in_callback(void);

/* Lets signals in, except those of blocked, for as long as it takes. */
[[noreturn]] void wait_for_signals(const sigset_t *blocked);

#endif
