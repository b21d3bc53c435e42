/* SPDX-License-Identifier: MIT
 *
 * One call: the request, the host's replies, the answers to its call-backs.
 *
 * A call-back and the end of a call arrive as the same signal; the host writes cbval before the one and retcode
 * before the other. So before the host is signalled both fields are given known values: cbval a fresh random mark,
 * retcode another, or, for an answer, the answer itself. Then a changed cbval means a call-back and a changed retcode
 * the end; no value is reserved. Where the host writes the very value that stood there, nothing changes, and its
 * state decides (rest.cpp).
 *
 * A signal makes the library look, and is never counted: replies and signals of others merge, and one that arrives
 * late finds the block unchanged, which again is left to the host's state. Nor does it prove anything that the host
 * itself is the sender: it can be its late reply to a foreign signal. So a signal is never asked where it comes from.
 *
 * A SIGUSR2 that anyone else sends to a waiting host makes it do what the block says. Therefore argc, without which
 * there is no call, is written last and taken back at the end: such a signal then costs a refusal with
 * KA_WRONG_COUNT, or with KA_WRONG_TYPE when argc is taken back under the host's eyes. The refusal can fall into the
 * next call, before the host has seen its request; so these two codes are believed only when the host has taken the
 * request and is at rest.
 *
 * A foreign signal from the moment of argc to the end of the call makes the host perform the call twice, or go on
 * from a call-back without its answer: that nobody can prevent. But the end of the second performance must not be
 * taken for the reply to the next call, nor may its results get into that call's arguments. So a call is over only
 * when the host has been seen idle after argc was taken back: what is performed after that is a refusal. */
#include "host.h"

#include <errno.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>

#include "doorbell.h"
#include "ka/dll_codes.h"
#include "uncancelled.h"

/* Between two looks at a host. After a signal that did not decide its state has to, which changes soon; before that a
   look only finds what a lost signal would have told: the program may have replaced the handler, or ignore SIGUSR2.
 */
enum : int64_t { FIRST_PAUSE_NS = 20000, FIRST_QUIET_PAUSE_NS = 1000000, LONGEST_PAUSE_NS = 50000000 };

enum t_EVENT {
    EVENT_NONE,
    EVENT_CALLBACK,
    EVENT_RETURNED,
    EVENT_DIED,
    EVENT_CANCELLED,
    EVENT_LATE,
    EVENT_UNKNOWABLE,
    EVENT_NOT_RUNG
};

struct t_REPLY {
    t_EVENT event;
    int32_t value; /* of the call-back, the return code, or an errno */
};

/* ---- Ring ------------------------------------------------------------------------------------------------------ */

static void prepare(ka_host *host, int32_t known)
{
    host->mark = random_word(host);
    host->known = known;
    host->progress = {};
    store32(host, host->layout->cbval, host->mark);
    store32(host, host->layout->retcode, host->known);
}

/* 0 or an errno. argc goes last: until then a foreign signal finds no call. */
static int ring(ka_host *host, int32_t argc)
{
    store32(host, host->layout->argc, argc);
    const int error = signal_process(host, SIGUSR2);
    if (error == 0) host->sent = true;
    return error;
}

/* ---- The verdict ----------------------------------------------------------------------------------------------- */

static t_REPLY judge_by_rest(ka_host *host)
{
    switch (look_for_rest(host)) {
    case AT_REST_IDLE:
        return {EVENT_RETURNED, load32(host, host->layout->retcode)};
    case AT_REST_IN_CALLBACK:
        return {EVENT_CALLBACK, load32(host, host->layout->cbval)};
    case REST_UNKNOWABLE:
        return {wait_until(host, -1, 0) & WOKEN_BY_DEATH ? EVENT_DIED : EVENT_UNKNOWABLE, 0};
    case NOT_AT_REST:
        break;
    }
    return {EVENT_NONE, 0};
}

static bool can_be_of_a_foreign_signal(int32_t code)
{
    return code == KA_WRONG_COUNT || code == KA_WRONG_TYPE;
}

/* Without a signal a changed block is no reply yet: a module can have written there. */
static t_REPLY judge(ka_host *host, bool replied)
{
    if (!replied) return judge_by_rest(host);
    const int32_t value = load32(host, host->layout->cbval);
    if (value != host->mark) return {EVENT_CALLBACK, value};
    const int32_t code = load32(host, host->layout->retcode);
    if (code != host->known && !can_be_of_a_foreign_signal(code)) return {EVENT_RETURNED, code};
    return judge_by_rest(host);
}

static int64_t lengthened(int64_t pause)
{
    if (pause < FIRST_PAUSE_NS) return FIRST_PAUSE_NS;
    return pause < LONGEST_PAUSE_NS / 2 ? pause * 2 : LONGEST_PAUSE_NS;
}

/* A wait that finds the host dead does not take its last signal, which a thread that hears has blocked again. */
static bool signal_is_pending(void)
{
    sigset_t pending;
    return sigpending(&pending) == 0 && sigismember(&pending, SIGUSR2) == 1;
}

/* Looks after every signal, and in lengthening pauses, since the host need not signal again. The second look after
   the first signal comes without a pause: by then most hosts are at rest, and their state can be proved. */
static t_REPLY await_reply(ka_host *host, int64_t deadline)
{
    int64_t pause = FIRST_QUIET_PAUSE_NS;
    bool signalled = false;
    for (;;) {
        const int64_t look_again = now_ns() + pause;
        const int woken = wait_until(host, -1, look_again < deadline ? look_again : deadline);
        if (woken & WOKEN_BY_CANCEL) return {EVENT_CANCELLED, 0};
        const bool first_signal = (woken & WOKEN_BY_SIGNAL) && !signalled;
        signalled |= first_signal;
        if (woken & WOKEN_BY_DEATH) signalled |= signal_is_pending();
        const t_REPLY reply = judge(host, signalled);
        if ((woken & WOKEN_BY_DEATH) && reply.event != EVENT_RETURNED) return {EVENT_DIED, 0};
        if (reply.event != EVENT_NONE) return reply;
        if (now_ns() >= deadline) return {EVENT_LATE, 0};
        pause = first_signal ? 0 : lengthened(pause);
    }
}

/* One request, or one answer to a call-back, and what comes of it. At the end of the call argc goes first. */
static t_REPLY converse(ka_host *host, int32_t known, int32_t argc, int64_t deadline)
{
    prepare(host, known);
    start_hearing(host);
    const int error = ring(host, argc);
    const t_REPLY reply = error == 0 ? await_reply(host, deadline) : t_REPLY{EVENT_NOT_RUNG, error};
    if (reply.event == EVENT_RETURNED) store32(host, host->layout->argc, 0);
    stop_hearing(host);
    return reply;
}

/* ---- The call -------------------------------------------------------------------------------------------------- */

static int32_t answer(ka_host *host, int32_t value)
{
    return host->options.callback ? host->options.callback(host, value, host->options.user) : 0;
}

static int32_t fail_exchange(ka_host *host, t_EVENT event)
{
    const char *what = host->in_callback ? "a call-back of" : "a call of";
    char where[SHOWN_NAME + 32];
    snprintf(where, sizeof where, "in %s \"%s\"", what, host->function);
    if (event == EVENT_DIED) return fail_dead(host, where);
    if (event == EVENT_CANCELLED) {
        fail(host, KA_CANCELLED, "%.300s: %s \"%s\" was cancelled", host->module, what, host->function);
    } else if (event == EVENT_LATE) {
        fail(host, KA_DEADLINE, "%.300s: %s \"%s\" took more than %d ms", host->module, what, host->function,
             host->options.deadline_ms);
    } else {
        fail_system(host, EIO, "cannot read the host's state from /proc");
    }
    return lose_host(host);
}

static int32_t fail_ring(ka_host *host, int error)
{
    if (error == ESRCH) return fail_exchange(host, EVENT_DIED);
    fail_system(host, error, "cannot signal the host");
    return lose_host(host);
}

static int32_t fail_out_of_turn(ka_host *host)
{
    if (host->state == STATE_ENDED) return fail(host, KA_CLOSED, "%.300s: the host has ended", host->module);
    if (host->state == STATE_CALLING) return fail(host, KA_ARGUMENT, "a call inside a call-back of the same host");
    return fail(host, KA_ARGUMENT, "ka_call without ka_begin");
}

static int32_t fail_unheard(ka_host *host)
{
    fail(host, KA_DEADLINE, "%.300s: a call of \"%s\" was not heard: the module handles SIGUSR2 itself", host->module,
         host->function);
    return lose_host(host);
}

static int32_t fail_settling(ka_host *host)
{
    fail(host, KA_DEADLINE, "%.300s: \"%s\" was made to run again by a foreign SIGUSR2, and took more than %d ms",
         host->module, host->function, host->options.deadline_ms);
    return lose_host(host);
}

/* A function that is performed again may call back again, and that is answered like the first time. argc stays 0. */
static int32_t answer_again(ka_host *host)
{
    host->in_callback = true;
    const int32_t known = answer(host, load32(host, host->layout->cbval));
    if (host->state != STATE_CALLING) return fail_out_of_turn(host);
    prepare(host, known);
    signal_process(host, SIGUSR2); /* a host that has died is found so */
    return KA_DONE;
}

/* Nearly every host is idle before its reply has waked this thread, and the others will be in a moment: so at first
   they are only given the processor. A host that dies now has replied, and the next call will report it. */
static int32_t settle(ka_host *host, int64_t deadline)
{
    enum { QUICK_LOOKS = 20 };
    int64_t pause = 0;
    for (int looks = 1; !is_idle_again(host, looks > QUICK_LOOKS); looks++) {
        if (looks <= QUICK_LOOKS) {
            sched_yield();
            continue;
        }
        pause = lengthened(pause);
        const int64_t look_again = now_ns() + pause;
        const int woken = wait_until(host, -1, look_again < deadline ? look_again : deadline);
        if (woken & WOKEN_BY_CANCEL) return fail_exchange(host, EVENT_CANCELLED);
        if (woken & WOKEN_BY_DEATH) return KA_DONE;
        if (now_ns() >= deadline) return fail_settling(host);
        if (look_for_rest(host) != AT_REST_IN_CALLBACK) continue;
        if (answer_again(host) != KA_DONE) return host->error.error_class;
        pause = 0;
    }
    return KA_DONE;
}

/* A host that was signalled and rests, with the random word in its place that was put there, has either performed a
   function that returned that very word, or nothing at all, since the module has a handler of its own. One more
   signal tells, for without argc it brings a refusal. True also when the host dies or is late meanwhile, which is
   found after that. */
static bool hears_calls(ka_host *host, int64_t deadline)
{
    const int32_t known = random_word(host);
    const t_REPLY reply = converse(host, known, 0, deadline);
    return reply.event != EVENT_RETURNED || reply.value != known;
}

static int32_t exchange(ka_host *host, int64_t deadline, int32_t *return_code)
{
    const int32_t argc = host->argc_is_given ? host->given_argc : host->argc;
    int32_t known = random_word(host);
    for (;;) {
        const t_REPLY reply = converse(host, known, argc, deadline);
        if (reply.event == EVENT_NOT_RUNG) return fail_ring(host, reply.value);
        if (reply.event != EVENT_RETURNED && reply.event != EVENT_CALLBACK) return fail_exchange(host, reply.event);
        const bool unchanged = reply.event == EVENT_RETURNED && reply.value == known;
        if (unchanged && !host->in_callback && !hears_calls(host, deadline)) return fail_unheard(host);
        host->answered = true;
        if (reply.event == EVENT_RETURNED) {
            host->losses = 0;
            *return_code = reply.value;
            return settle(host, deadline);
        }
        host->in_callback = true;
        known = answer(host, reply.value);
        if (host->state != STATE_CALLING) return fail_out_of_turn(host); /* the child of a fork in the call-back */
        if (now_ns() >= deadline) return fail_exchange(host, EVENT_LATE);
    }
}

/* What happened while nobody waited: a reply to a foreign signal is dropped, a death is reported, unless the host may
   be started again. */
static int32_t look_before_call(ka_host *host, int64_t deadline)
{
    const int woken = wait_until(host, -1, 0);
    if (woken & WOKEN_BY_CANCEL) return fail_exchange(host, EVENT_CANCELLED);
    if (woken & WOKEN_BY_DEATH) fail_dead(host, host->answered ? "between calls" : "before its first call");
    if (host->pid_fd != -1) return KA_DONE;
    return can_restart(host) ? start_again(host, deadline) : host->error.error_class;
}

int32_t ka_call(ka_host *host, int32_t *return_code)
{
    HOLD_CANCELLATION;
    if (host->state != STATE_BUILDING) return fail_out_of_turn(host);
    if (host->build_error != KA_DONE) {
        host->error = host->build_failure;
        return host->build_error;
    }
    const int64_t deadline = deadline_after_ms(host->options.deadline_ms);
    host->called_ns = now_ns();
    int32_t status = look_before_call(host, deadline);
    if (status == KA_DONE) {
        host->state = STATE_BUILDING;
        status = admit_call(host, deadline);
    }
    if (status == KA_DONE) {
        host->state = STATE_CALLING;
        status = exchange(host, deadline, return_code);
    }
    host->called_ns = 0;
    if (status != KA_DONE) {
        restart_at_once(host);
        return status;
    }
    take_results(host);
    host->state = STATE_CALLED;
    host->sent = false;
    return KA_DONE;
}
