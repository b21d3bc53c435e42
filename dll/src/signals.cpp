/* SPDX-License-Identifier: MIT
 *
 * See signals.h. */
#include "signals.h"

#include <setjmp.h>
#include <string.h>

#include "arithmetic.h"

pthread_t host::main_thread;
bool host::ending;
bool host::called_back;

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

namespace {

bool raise_what_was_put_off(void)
{
    return __atomic_exchange_n(&put_off, false, __ATOMIC_RELAXED) && raise(SIGUSR2) == 0;
}

} // namespace

void wait_for_signals(const sigset_t *blocked)
{
    for (;;) {
        sigsuspend(blocked);
        raise_what_was_put_off();
    }
}

/* ---- The wait for calls, and the jump back to it --------------------------------------------------------------- */

/* A jump leaves in force what the call has left, where a return brings back what was in force during the wait:
   - The mask: a call begins with that of the wait and SIGUSR2, the same that main has had since its start, unless it
     inherited more or dll_setup changed it. Where a call-back has changed it, it is set.
   - The alternate stack, unless the frame is the shorter one of a 32-bit process, which holds none.
   - The arithmetic.
   A function that changes its mask or the alternate stack itself does not say so. For the mask that makes no
   difference: the wait has its own, and so the next call begins with the usual one. The alternate stack is put right
   when the next call begins.
   Nobody needs what is jumped over: the frames of the handler hold no object with a destructor, and there is only
   the wait below, as comes_from_wait has seen. */

namespace {

/* Set when the wait begins and never changed, so a jump finds nothing of it in a register. */
struct t_WAIT {
    sigjmp_buf begin;
    const void *depth; /* of the stack */
    const void *stack; /* the same; null where handlers are left by their return */
    void (*look)(void);
    sigset_t blocked;
    sigset_t mask; /* of the thread when it lets nothing in; set once more by prepare_quiet_calls */
    stack_t alternate_stack;
    t_ARITHMETIC arithmetic;
};
t_WAIT waiting;

bool in_quiet_call; /* it has no frame of the kernel's below, so its depth does not tell it from the wait */

#ifndef SS_AUTODISARM
constexpr unsigned SS_AUTODISARM = 1u << 31;
#endif

bool is_same(const stack_t &a, const stack_t &b)
{
    return a.ss_sp == b.ss_sp && a.ss_size == b.ss_size;
}

/* An alternate stack that each handler takes away comes back by a return alone. */
bool handlers_disarm(void)
{
    return (static_cast<unsigned>(waiting.alternate_stack.ss_flags) & SS_AUTODISARM) != 0;
}

void decide_about_jumps(void)
{
    const sigset_t calls_mask = blocked_at_start();
    const bool can_jump = !handlers_disarm() && memcmp(&waiting.mask, &calls_mask, sizeof(uint64_t)) == 0;
    waiting.stack = can_jump ? waiting.depth : nullptr;
}

} // namespace

void wait_for_calls(void (*look)(void))
{
    waiting.look = look;
    waiting.blocked = blocked_while_idle();
    sigprocmask(SIG_BLOCK, nullptr, &waiting.mask);
    sigaltstack(nullptr, &waiting.alternate_stack);
    waiting.arithmetic = arithmetic();
    waiting.depth = __builtin_dwarf_cfa();
    decide_about_jumps();

    if (sigsetjmp(waiting.begin, 0) != 0) resume_arithmetic(&waiting.arithmetic);
    for (;;) {
        if (!raise_what_was_put_off() && !handlers_disarm()) waiting.look();
        raise_what_was_put_off();
        sigsuspend(&waiting.blocked);
    }
}

bool comes_from_wait(const t_INTERRUPTED &interrupted)
{
    if (in_quiet_call || !is_at(interrupted, waiting.stack)) return false;
    host::called_back = false;
    const stack_t *left = interrupted.alternate_stack;
    if (left != nullptr && !is_same(*left, waiting.alternate_stack)) sigaltstack(&waiting.alternate_stack, nullptr);
    return true;
}

void jump_to_wait(void)
{
    if (host::called_back) sigprocmask(SIG_SETMASK, &waiting.mask, nullptr);
    siglongjmp(waiting.begin, 1);
}

/* ---- Calls without a signal ------------------------------------------------------------------------------------ */

/* A handler finds the mask of the wait with SIGUSR2, whatever the thread's own was; its return brings back that and
   the alternate stack. */
void prepare_quiet_calls(void)
{
    waiting.mask = blocked_at_start();
    decide_about_jumps();
    sigprocmask(SIG_SETMASK, &waiting.mask, nullptr);
    sigaltstack(&waiting.alternate_stack, nullptr);
}

void begin_quiet_call(void)
{
    in_quiet_call = true;
    renew_arithmetic();
}

void end_quiet_call(void)
{
    resume_arithmetic(&waiting.arithmetic);
    sigprocmask(SIG_SETMASK, &waiting.mask, nullptr);
    sigaltstack(&waiting.alternate_stack, nullptr);
    in_quiet_call = false;
}
