/* SPDX-License-Identifier: MIT
 *
 * One call: ka_call, and the same in steps that the program takes itself. */
#include "base/clock.h"
#include "base/thread.h"
#include "doorbell/doorbell.h"
#include "doorbell/wait_fd.h"
#include "host/cancel.h"
#include "host/owner.h"
#include "steps.h"

/* ---- The loop -------------------------------------------------------------------------------------------------- */

static int32_t answer_of(ka_host *host, int32_t value)
{
    return host->options.callback ? host->options.callback(host, value, host->options.user) : 0;
}

/* After a call-back that has changed the host's state: the program has forked in it, and this is the child. */
static int32_t fail_out_of_turn(ka_host *host)
{
    if (take_turn(host, TURN_CALL) != KA_DONE) return host->error.error_class;
    return fail(host, KA_ARGUMENT, "ka_call before ka_begin");
}

int32_t ka_call(ka_host *host, int32_t *return_code)
{
    HOLD_CANCELLATION;
    COME_IN(host, visit.refusal);
    if (take_turn(host, TURN_CALL) != KA_DONE) return host->error.error_class;
    int32_t status = send_call(host, STATE_CALLING);
    while (status == KA_DONE) {
        int32_t what = KA_WAITING;
        int32_t value = 0;
        status = await_call(host, NEVER, &what, &value);
        if (status != KA_DONE) break;
        if (what == KA_RETURNED) {
            *return_code = value;
            break;
        }
        const int32_t answer = answer_of(host, value);
        if (host->life.state != STATE_CALLING) return fail_out_of_turn(host);
        status = answer_call(host, answer);
    }
    return status;
}

/* ---- Steps ----------------------------------------------------------------------------------------------------- */

/* Between two steps the thread belongs to the program. */
static void leave_to_program(ka_host *host)
{
    host->life.state = STATE_SENT;
    go_away(host);
    arm_wait_fd(host);
}

int32_t ka_send(ka_host *host)
{
    HOLD_CANCELLATION;
    COME_IN(host, visit.refusal);
    if (take_turn(host, TURN_SEND) != KA_DONE) return host->error.error_class;
    const int32_t status = send_call(host, STATE_SENT);
    if (status == KA_DONE) leave_to_program(host);
    return status;
}

static int32_t take_step(ka_host *host, int32_t timeout_ms, int32_t *what, int32_t *value)
{
    t_STEPS *steps = &host->steps;
    come_back(host);
    steps->is_interruptible = true;
    steps->only_looks = timeout_ms == 0;
    const int32_t status = await_call(host, timeout_ms < 0 ? NEVER : deadline_after_ms(timeout_ms), what, value);
    steps->is_interruptible = false;
    if (status != KA_DONE) return status;
    if (*what == KA_WAITING) {
        leave_to_program(host);
    } else if (*what == KA_CALLBACK) {
        host->life.state = STATE_ASKED;
        disarm_wait_fd(host);
    }
    return KA_DONE;
}

int32_t ka_wait(ka_host *host, int32_t timeout_ms, int32_t *what, int32_t *value)
{
    HOLD_CANCELLATION;
    COME_IN(host, visit.refusal);
    if (host->life.state == STATE_ASKED && is_cancelled(host)) return abandon_call(host);
    if (take_turn(host, TURN_WAIT) != KA_DONE) return host->error.error_class;
    if (timeout_ms < -1) return fail(host, KA_ARGUMENT, "timeout_ms is %d; it must not be below -1", timeout_ms);
    return take_step(host, timeout_ms, what, value);
}

int32_t ka_answer(ka_host *host, int32_t value)
{
    HOLD_CANCELLATION;
    COME_IN(host, visit.refusal);
    if (take_turn(host, TURN_ANSWER) != KA_DONE) return host->error.error_class;
    const int32_t status = answer_call(host, value);
    if (status == KA_DONE) leave_to_program(host);
    return status;
}
