/* SPDX-License-Identifier: MIT
 *
 * One call: the request, the answers to its call-backs, and its end. reply.cpp says how replies are distinguished.
 *
 * If another process signals the host between the writing of argc and the end of the call, the host runs the call
 * twice, or leaves a call-back without its answer. We cannot prevent that. We can keep the second run out of the next
 * call: a call is over only once the host has been seen idle after argc was reset. Whatever runs later is refused. */
#include <errno.h>
#include <signal.h>
#include <stdio.h>

#include "base/clock.h"
#include "base/name.h"
#include "base/pidfd.h"
#include "base/random.h"
#include "base/thread.h"
#include "block/annex.h"
#include "block/results.h"
#include "block/segment.h"
#include "doorbell/rest.h"
#include "doorbell/wait.h"
#include "host/host.h"
#include "prepare.h"
#include "process/end.h"
#include "process/regain.h"
#include "reason.h"
#include "reply.h"
#include "restart.h"

static int32_t answer(ka_host *host, int32_t value)
{
    return host->options.callback ? host->options.callback(host, value, host->options.user) : 0;
}

/* ---- What can go wrong ----------------------------------------------------------------------------------------- */

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
             host->options.deadline_ms);
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
         host->module, host->function, host->options.deadline_ms);
    return fail_and_end(host);
}

/* After a call-back that has changed the host's state: the program has forked in it, and this is the child. */
static int32_t fail_out_of_turn(ka_host *host)
{
    if (take_turn(host, TURN_CALL) != KA_DONE) return host->error.error_class;
    return fail(host, KA_ARGUMENT, "ka_call before ka_begin");
}

/* The host lives, and is signalled by its number. What can be looked at is its annex, or the child, whose number
   stays its own until the library waits for it; that of a command's child does not. Before its first answer, and
   where a cancellation must be seen at once, the descriptors are needed anyway. */
static bool needs_no_descriptor(const ka_host *host)
{
    if (host->options.cancel_fd != -1 || host->process.command != 0) return false;
    return host_uses_annex(host) || (host->process.answered && is_living_child(host->process.pid));
}

static bool is_there(ka_host *host)
{
    return needs_no_descriptor(host) || regain_process(host);
}

/* ---- The end of a call ----------------------------------------------------------------------------------------- */

/* A function that runs again may call back again, and gets an answer like the first time. argc stays 0. */
static int32_t answer_again(ka_host *host)
{
    host->building.in_callback = true;
    const int32_t retcode_before = answer(host, load32(host, host->segment.layout->cbval));
    if (host->life.state != STATE_CALLING) return fail_out_of_turn(host);
    if (!regain_process(host)) return fail_call(host, EVENT_DIED);
    prepare_reply(host, retcode_before);
    number_request(host, WITH_SIGNALS);
    signal_process(host->process.pid_fd, SIGUSR2); /* a host that has died is found so */
    return KA_DONE;
}

/* Most hosts are idle before their reply wakes this thread; the rest need microseconds and a processor, perhaps this
   one: so it sleeps. A host that dies now has already replied: the next call reports it. */
static int32_t await_idle(ka_host *host, int64_t deadline)
{
    enum { QUICK_LOOKS = 3 };
    if (is_idle_as_before(host)) return KA_DONE;
    int64_t pause = 0;
    for (int looks = 1; regain_process(host) && !is_idle_again(host, looks > QUICK_LOOKS); looks++) {
        pause = next_pause(pause);
        const int64_t look_again = now_ns() + pause;
        const int woken = wait_until(host, -1, look_again < deadline ? look_again : deadline);
        if (woken & WOKEN_BY_ERROR) return fail_wait(host, errno);
        if (woken & WOKEN_BY_CANCEL) return fail_call(host, EVENT_CANCELLED);
        if (woken & WOKEN_BY_DEATH) return KA_DONE;
        if (now_ns() >= deadline) return fail_late_idle(host);
        if (look_for_rest(host) != AT_REST_IN_CALLBACK) continue;
        if (answer_again(host) != KA_DONE) return host->error.error_class;
        pause = 0;
    }
    return KA_DONE;
}

/* ---- The call -------------------------------------------------------------------------------------------------- */

/* The host is idle and retcode still holds our random word. Either the function returned exactly that word, or the
   module replaced the SIGUSR2 handler and nothing ran. Signal once more with argc 0: a host that answers refuses, and
   retcode changes. Also done if the host dies or is late here; the caller finds that next. */
static int32_t check_that_it_answers(ka_host *host, int64_t deadline)
{
    const int32_t retcode_before = random_word(&host->random);
    const t_REPLY reply = send_and_await(host, retcode_before, 0, deadline);
    if (reply.event == EVENT_UNWAITED) return fail_wait(host, reply.value);
    return reply.event == EVENT_RETURNED && reply.value == retcode_before ? fail_unanswered(host) : KA_DONE;
}

static int32_t exchange(ka_host *host, int64_t deadline, int32_t *return_code)
{
    const int32_t argc = host->building.argc_is_given ? host->building.given_argc : host->building.argc;
    int32_t retcode_before = random_word(&host->random);
    for (;;) {
        const t_REPLY reply = send_and_await(host, retcode_before, argc, deadline);
        if (reply.event == EVENT_NOT_SENT) return fail_signal(host, reply.value);
        if (reply.event == EVENT_UNWAITED) return fail_wait(host, reply.value);
        if (reply.event != EVENT_RETURNED && reply.event != EVENT_CALLBACK) return fail_call(host, reply.event);
        const bool unchanged = reply.event == EVENT_RETURNED && reply.value == retcode_before;
        if (unchanged && !host->building.in_callback && check_that_it_answers(host, deadline) != KA_DONE)
            return host->error.error_class;
        host->process.answered = true;
        if (reply.event == EVENT_RETURNED) {
            host->life.deaths_in_a_row = 0;
            *return_code = reply.value;
            return await_idle(host, deadline);
        }
        host->building.in_callback = true;
        retcode_before = answer(host, reply.value);
        if (host->life.state != STATE_CALLING) return fail_out_of_turn(host);
        if (!is_there(host)) return fail_call(host, EVENT_DIED);
        if (now_ns() >= deadline) return fail_call(host, EVENT_LATE);
    }
}

/* Events since the last call: a death is reported, unless the host may be started again. A signal that came since
   makes the wait look once more; where descriptors are looked at, it is taken here. */
static int32_t look_before_call(ka_host *host, int64_t deadline)
{
    if (needs_no_descriptor(host)) return KA_DONE;
    if (!regain_process(host)) return fail_dead(host, "between calls");
    const int woken = wait_until(host, -1, 0);
    if (woken & WOKEN_BY_ERROR) return fail_wait(host, errno);
    if (woken & WOKEN_BY_CANCEL) return fail_call(host, EVENT_CANCELLED);
    if (woken & WOKEN_BY_DEATH) fail_dead(host, host->process.answered ? "between calls" : "before its first call");
    if (host->process.pid_fd != -1) return KA_DONE;
    return can_restart(host) ? start_again(host, deadline) : host->error.error_class;
}

int32_t ka_call(ka_host *host, int32_t *return_code)
{
    HOLD_CANCELLATION;
    if (take_turn(host, TURN_CALL) != KA_DONE) return host->error.error_class;
    if (host->building.error != KA_DONE) {
        host->error = host->build_failure;
        return host->building.error;
    }
    host->reason[0] = '\0';
    host->building.called_ns = now_ns();
    const int64_t deadline = host->building.called_ns + host->options.deadline_ms * NS_PER_MS;
    int32_t status = look_before_call(host, deadline);
    if (status == KA_DONE) {
        host->life.state = STATE_BUILDING;
        status = prepare_and_check_call(host, deadline);
    }
    if (status == KA_DONE) {
        begin_reason(host);
        host->life.state = STATE_CALLING;
        status = exchange(host, deadline, return_code);
        find_reason(host, status, status == KA_DONE ? *return_code : 0);
    }
    host->building.called_ns = 0;
    if (status != KA_DONE) {
        restart_at_once(host);
        return status;
    }
    take_results(host);
    host->life.state = STATE_CALLED;
    host->building.sent = false;
    return KA_DONE;
}
