/* SPDX-License-Identifier: MIT
 *
 * What the host tells its caller: the end of a call, and call-backs, for whose answers it waits. */
#include <pthread.h>
#include <setjmp.h>
#include <signal.h>

#include "annex.h"
#include "arithmetic.h"
#include "block.h"
#include "signals.h"

using host::at;
using host::layout;

namespace {

/* A pid of 0 or below would name a group of processes or all of them: it counts as gone. */
bool signal_caller(bool callback)
{
    const int32_t pid = load32(at(wire::PID_AT));
    if (pid <= 0 || (host::is_stranger(pid) && kill(pid, 0) != 0)) return false;
    return host::tell_reply(callback) || kill(pid, SIGUSR2) == 0;
}

pthread_t callback_thread;   /* the one in dll_callback; the main thread after it */
int32_t callback_value;      /* the last one */
sigjmp_buf dll_callback_jmp; /* valid while dll_callback waits */

void call_back(bool waits_quietly)
{
    host::before_reply(waits_quietly);
    if (!signal_caller(true)) raise(SIGTERM);
}

/* A signal of somebody else can begin a call before its request is counted. Then that comes during the call-back, and
   is no answer; the caller, which could not know the call-back for one of its own, and has written over its value,
   hears of it now. */
void take_late_request(bool waits_quietly)
{
    host::take_request();
    store32(at(layout().cbval), callback_value);
    call_back(waits_quietly);
}

void dll_callback_handler(int signal)
{
    if (passed_on(signal, callback_thread)) return;
    if (__atomic_load_n(&host::ending, __ATOMIC_RELAXED) || must_wait(THIS_FRAME)) return;
    if (!host::has_request()) return;
    if (host::is_answer()) siglongjmp(dll_callback_jmp, 0);
    take_late_request(false);
}

/* The mask is that of the handler which an answer with a signal would have. On a thread of the module's the wait is
   for signals: the main thread can end the process meanwhile, and the block goes away. */
bool is_answered_quietly(bool on_main_thread)
{
    if (!on_main_thread || !host::may_come_quietly()) return false;
    sigset_t blocked = blocked_in_callback();
    sigaddset(&blocked, SIGUSR2);
    sigprocmask(SIG_SETMASK, &blocked, nullptr);
    while (host::await_quietly()) {
        if (host::is_answer()) return true;
        take_late_request(true);
    }
    return false;
}

} // namespace

bool reply(int32_t code)
{
    store32(at(layout().retcode), code);
    host::end_call();
    return signal_caller(false);
}

/* SIGUSR2 is blocked on entry and stays so up to the wait: an answer that comes early stays pending and is not lost.
 */
int32_t dll_callback(int32_t value)
{
    struct sigaction previous;             /* not changed after the jump point is set, so the jump does not lose it */
    const t_ARITHMETIC own = arithmetic(); /* the handler that is left by the jump began with the defaults */
    callback_value = value;
    store32(at(layout().cbval), value);
    callback_thread = pthread_self();
    install(SIGUSR2, dll_callback_handler, &previous);
    const bool on_main_thread = pthread_equal(callback_thread, host::main_thread) != 0;
    call_back(on_main_thread);

    /* KEPT: the jump leaves the mask of the answering handler in force, so from here on SIGUSR1 is not blocked until
       the call ends; a mask saved and restored would block it again. Test: Callback.leaves_sigusr1_unblocked. */
    if (!is_answered_quietly(on_main_thread) && sigsetjmp(dll_callback_jmp, 0) == 0) {
        const sigset_t blocked = blocked_in_callback();
        wait_for_signals(&blocked);
    }
    host::called_back = true;
    host::take_request();
    set_arithmetic(&own);
    sigaction(SIGUSR2, &previous, nullptr);
    callback_thread = host::main_thread;
    return load32(at(layout().retcode));
}
