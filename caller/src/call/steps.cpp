/* SPDX-License-Identifier: MIT
 *
 * See steps.h: the request, the answers to the call-backs, and the end of the call. reply.cpp says how replies are
 * distinguished.
 *
 * If another process signals the host between the writing of argc and the end of the call, the host runs the call
 * twice, or leaves a call-back without its answer. We cannot prevent that. We can keep the second run out of the next
 * call: a call is over only once the host has been seen idle after argc was reset. Whatever runs later is refused. */
#include "steps.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>

#include "base/clock.h"
#include "base/name.h"
#include "base/pidfd.h"
#include "base/random.h"
#include "block/annex.h"
#include "block/results.h"
#include "block/segment.h"
#include "doorbell/doorbell.h"
#include "doorbell/rest.h"
#include "doorbell/wait.h"
#include "doorbell/wait_fd.h"
#include "host/cancel.h"
#include "prepare.h"
#include "process/end.h"
#include "process/regain.h"
#include "reason.h"
#include "reply.h"
#include "restart.h"

/* ---- What can go wrong ----------------------------------------------------------------------------------------- */

/* The program may have set another since. */
static int32_t deadline_ms(const ka_host *host)
{
    return static_cast<int32_t>((host->steps.deadline - host->building.called_ns) / NS_PER_MS);
}

static int32_t fail_call(ka_host *host, t_EVENT event)
{
    const char *what = host->building.in_callback ? "a call-back of" : "a call of";
    char where[SHOWN_NAME + 32];
    snprintf(where, sizeof where, "in %s \"%s\"", what, host->function);
    if (event == EVENT_DIED) return fail_dead(host, where);
    if (event == EVENT_CANCELLED) {
        fail(host, KA_CANCELLED, "%.300s: %s \"%s\" was cancelled", host->module, what, host->function);
    } else if (event == EVENT_LATE) {
        fail(host, KA_DEADLINE, "%.300s: %s \"%s\" took more than %d ms", host->module, what, host->function,
             deadline_ms(host));
    } else {
        fail_system(host, EIO, "cannot read the host's state from /proc");
    }
    return fail_and_end(host);
}

static int32_t fail_signal(ka_host *host, int error)
{
    if (error == ESRCH) return fail_call(host, EVENT_DIED);
    fail_system(host, error, "cannot signal the host");
    return fail_and_end(host);
}

static int32_t fail_deaf(ka_host *host, int error)
{
    fail_system(host, error, "cannot handle SIGUSR2");
    return fail_and_end(host);
}

static int32_t fail_wait(ka_host *host, int error)
{
    fail_system(host, error, "cannot wait for the host");
    return fail_and_end(host);
}

static int32_t fail_unanswered(ka_host *host)
{
    fail(host, KA_DEADLINE, "%.300s: a call of \"%s\" was not answered: the module handles SIGUSR2 itself",
         host->module, host->function);
    return fail_and_end(host);
}

static int32_t fail_late_idle(ka_host *host)
{
    fail(host, KA_DEADLINE, "%.300s: \"%s\" was made to run again by a foreign SIGUSR2, and took more than %d ms",
         host->module, host->function, deadline_ms(host));
    return fail_and_end(host);
}

/* The host lives, and is signalled by its number. What can be looked at is its annex, or the child, whose number
   stays its own until the library waits for it; that of a command's child does not. Before its first answer, and
   where a signal or a descriptor tells what happens, the descriptors are needed anyway. */
static bool needs_no_descriptor(const ka_host *host)
{
    if (wants_signals(host) || host->process.command != 0) return false;
    return host_uses_annex(host) || (host->process.answered && is_living_child(host->process.pid));
}

static bool is_there(ka_host *host)
{
    return needs_no_descriptor(host) || regain_process(host);
}

/* ---- The end of a call ----------------------------------------------------------------------------------------- */

enum : int64_t { IDLE_PATIENCE_NS = NS_PER_MS };

static int64_t earliest(int64_t one, int64_t other)
{
    return one < other ? one : other;
}

/* A host that dies now has already replied: the next call reports it. False: it is to be looked at again. */
static bool ends_idle_wait(ka_host *host, int woken, int64_t until, t_STEP *step)
{
    if (woken & WOKEN_BY_ERROR) {
        step->status = fail_wait(host, errno);
    } else if (woken & WOKEN_BY_CANCEL) {
        step->status = fail_call(host, EVENT_CANCELLED);
    } else if (woken & WOKEN_BY_DEATH) {
        step->what = KA_RETURNED;
    } else if (now_ns() >= host->steps.deadline) {
        step->status = fail_late_idle(host);
    } else if (look_for_rest(host) == AT_REST_IN_CALLBACK) {
        *step = {KA_DONE, KA_CALLBACK, load32(host, host->segment.layout->cbval)};
    } else {
        const bool is_over = (woken & WOKEN_BY_HANDLER) || now_ns() >= until;
        if (is_over) *step = {KA_DONE, KA_WAITING, 0};
        return is_over;
    }
    return true;
}

/* Most hosts are idle before their reply wakes this thread; the rest need microseconds and a processor, perhaps this
   one: so it sleeps, for a moment also in a step that only looks. */
static t_STEP await_idle(ka_host *host, int64_t until)
{
    enum { QUICK_LOOKS = 3 };
    t_STEPS *steps = &host->steps;
    t_STEP step = {KA_DONE, KA_RETURNED, steps->return_code};
    if (steps->looks == 0 && is_idle_as_before(host)) return step;
    if (until != NEVER) until = now_ns() + IDLE_PATIENCE_NS > until ? now_ns() + IDLE_PATIENCE_NS : until;
    while (regain_process(host) && !is_idle_again(host, ++steps->looks > QUICK_LOOKS)) {
        steps->pause = next_pause(steps->pause);
        steps->look_at = now_ns() + steps->pause;
        const int woken = wait_until(host, -1, earliest(earliest(steps->look_at, steps->deadline), until));
        if (ends_idle_wait(host, woken, until, &step)) return step;
    }
    return {KA_DONE, KA_RETURNED, steps->return_code};
}

/* A function that runs again may call back again, and gets an answer like the first time. argc stays 0. */
static int32_t answer_again(ka_host *host, int32_t answer)
{
    if (!regain_process(host)) return fail_call(host, EVENT_DIED);
    prepare_reply(host, answer);
    number_request(host, WITH_SIGNALS);
    signal_process(host->process.pid_fd, SIGUSR2); /* a host that has died is found so */
    host->steps.pause = 0;
    return KA_DONE;
}

/* ---- Requests and replies -------------------------------------------------------------------------------------- */

static int32_t send_step(ka_host *host, t_PHASE phase, int32_t retcode_before, int32_t argc)
{
    host->steps.phase = phase;
    const int deaf = hear_reply(host);
    if (deaf != 0) return fail_deaf(host, deaf);
    const int error = send_request(host, retcode_before, argc);
    return error == 0 ? KA_DONE : fail_signal(host, error);
}

static int32_t argc_of(const ka_host *host)
{
    return host->building.argc_is_given ? host->building.given_argc : host->building.argc;
}

static t_STEP end_with(ka_host *host, int32_t return_code, int64_t until)
{
    host->process.answered = true;
    host->life.deaths_in_a_row = 0;
    host->steps.phase = PHASE_IDLE;
    host->steps.return_code = return_code;
    host->steps.looks = 0;
    host->steps.pause = 0;
    return await_idle(host, until);
}

/* The host is idle and retcode still holds our random word. Either the function returned exactly that word, or the
   module replaced the SIGUSR2 handler and nothing ran. Signal once more with argc 0: a host that answers refuses, and
   retcode changes. Also done if the host dies or is late here; the caller finds that next. */
static t_STEP await_check(ka_host *host, int64_t until)
{
    const t_REPLY reply = await_reply(host, until);
    if (reply.event == EVENT_NONE) return {KA_DONE, KA_WAITING, 0};
    if (reply.event == EVENT_UNWAITED) return {fail_wait(host, reply.value), 0, 0};
    const bool unchanged = reply.event == EVENT_RETURNED && reply.value == host->waiting.retcode_before;
    if (unchanged) return {fail_unanswered(host), 0, 0};
    return end_with(host, host->steps.return_code, until);
}

static t_STEP check_that_it_answers(ka_host *host, int32_t return_code, int64_t until)
{
    host->steps.phase = PHASE_CHECK;
    host->steps.return_code = return_code;
    if (send_request(host, random_word(&host->random), 0) != 0) return end_with(host, return_code, until);
    return await_check(host, until);
}

static t_STEP await_turn(ka_host *host, int64_t until)
{
    const t_REPLY reply = await_reply(host, until);
    if (reply.event == EVENT_NONE) return {KA_DONE, KA_WAITING, 0};
    if (reply.event == EVENT_UNWAITED) return {fail_wait(host, reply.value), 0, 0};
    if (reply.event != EVENT_RETURNED && reply.event != EVENT_CALLBACK) return {fail_call(host, reply.event), 0, 0};
    const bool returned = reply.event == EVENT_RETURNED;
    if (returned && reply.value == host->waiting.retcode_before && !host->building.in_callback)
        return check_that_it_answers(host, reply.value, until);
    if (returned) return end_with(host, reply.value, until);
    host->process.answered = true;
    return {KA_DONE, KA_CALLBACK, reply.value};
}

/* ---- The begin of a call --------------------------------------------------------------------------------------- */

/* Events since the last call: a death is reported, unless the host may be started again. A signal that came since
   makes the wait look once more; where descriptors are looked at, it is taken here. */
static int32_t look_before_call(ka_host *host)
{
    if (host->segment.is_private && host->process.pid_fd != -1)
        return start_with_more_room(host, host->steps.deadline);
    if (needs_no_descriptor(host)) return KA_DONE;
    if (!regain_process(host)) return fail_dead(host, "between calls");
    const int woken = wait_until(host, -1, 0);
    if (woken & WOKEN_BY_ERROR) return fail_wait(host, errno);
    if (woken & WOKEN_BY_CANCEL) return fail_call(host, EVENT_CANCELLED);
    if (woken & WOKEN_BY_DEATH) fail_dead(host, host->process.answered ? "between calls" : "before its first call");
    if (host->process.pid_fd != -1) return KA_DONE;
    return can_restart(host) ? start_again(host, host->steps.deadline) : host->error.error_class;
}

static int32_t prepare_call(ka_host *host)
{
    const int32_t status = look_before_call(host);
    if (status != KA_DONE) return status;
    host->life.state = STATE_BUILDING;
    return prepare_and_check_call(host, host->steps.deadline);
}

/* ---- Steps ----------------------------------------------------------------------------------------------------- */

/* A call that fails is over, too. */
static int32_t end_failed(ka_host *host, int32_t status)
{
    host->steps.is_interruptible = false;
    disarm_wait_fd(host);
    const int32_t error_class = settle_cancel(host, status);
    if (host->building.begun) find_reason(host, error_class, 0);
    host->building.called_ns = 0;
    return restart_at_once(host, error_class);
}

static int32_t end_returned(ka_host *host, int32_t return_code)
{
    disarm_wait_fd(host);
    const int32_t error_class = settle_cancel(host, KA_DONE);
    if (error_class != KA_DONE) return end_failed(host, error_class);
    find_reason(host, KA_DONE, return_code);
    host->building.called_ns = 0;
    take_results(host);
    host->life.state = STATE_CALLED;
    host->building.sent = false;
    return KA_DONE;
}

int32_t send_call(ka_host *host, t_STATE state)
{
    if (host->building.error != KA_DONE) {
        host->error = host->build_failure;
        return host->building.error;
    }
    host->reason[0] = '\0';
    host->building.called_ns = now_ns();
    host->steps = {};
    host->steps.by_program = state == STATE_SENT;
    host->steps.deadline = host->building.called_ns + host->options.deadline_ms * NS_PER_MS;
    open_to_cancel(host);
    int32_t status = prepare_call(host);
    if (status == KA_DONE && is_cancelled(host)) status = fail_call(host, EVENT_CANCELLED);
    if (status == KA_DONE) {
        begin_reason(host);
        host->building.begun = true;
        host->life.state = state;
        status = send_step(host, PHASE_REPLY, random_word(&host->random), argc_of(host));
    }
    return status == KA_DONE ? KA_DONE : end_failed(host, status);
}

int32_t await_call(ka_host *host, int64_t until, int32_t *what, int32_t *value)
{
    const t_PHASE phase = host->steps.phase;
    const t_STEP step = phase == PHASE_REPLY   ? await_turn(host, until)
                        : phase == PHASE_CHECK ? await_check(host, until)
                                               : await_idle(host, until);
    int32_t status = step.status;
    if (status != KA_DONE) return end_failed(host, status);
    if (step.what == KA_RETURNED) status = end_returned(host, step.value);
    if (step.what == KA_CALLBACK) host->building.in_callback = true;
    if (status != KA_DONE) return status;
    *what = step.what;
    *value = step.value;
    return KA_DONE;
}

int32_t answer_call(ka_host *host, int32_t answer)
{
    int32_t status = KA_DONE;
    if (is_cancelled(host))
        status = fail_call(host, EVENT_CANCELLED);
    else if (host->steps.phase == PHASE_IDLE)
        status = answer_again(host, answer);
    else if (!is_there(host))
        status = fail_call(host, EVENT_DIED);
    else if (now_ns() >= host->steps.deadline)
        status = fail_call(host, EVENT_LATE);
    else
        status = send_step(host, PHASE_REPLY, answer, argc_of(host));
    return status == KA_DONE ? KA_DONE : end_failed(host, status);
}

int32_t abandon_call(ka_host *host)
{
    return end_failed(host, fail_call(host, EVENT_CANCELLED));
}
