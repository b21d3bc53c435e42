/* SPDX-License-Identifier: MIT
 *
 * See restart.h. The new process gets the old one's segment, so that a call
 * that was built is complete and the scratch area keeps its content. */
#include "restart.h"

#include <errno.h>

#include "base/clock.h"
#include "base/thread.h"
#include "block/segment.h"
#include "doorbell/wait.h"
#include "host/cancel.h"
#include "host/owner.h"
#include "process/end.h"
#include "process/open.h"

/* From the last start on; doubled with each loss after the first. The shift is bounded, and so is the product. */
static int64_t pause_end(const ka_host *host)
{
    const int32_t doublings = host->life.deaths_in_a_row > 1 ? host->life.deaths_in_a_row - 1 : 0;
    const int64_t doubled = int64_t{host->options.restart_pause_ms} << (doublings < 31 ? doublings : 31);
    const int64_t longest = host->options.restart_pause_max_ms;
    return host->life.started_ns + (doubled < longest ? doubled : longest) * NS_PER_MS;
}

static int32_t await_pause(ka_host *host, int64_t deadline)
{
    const int64_t end = pause_end(host);
    const int64_t until = end < deadline ? end : deadline;
    while (now_ns() < until) {
        const int woken = wait_until(host, -1, until);
        if (woken & WOKEN_BY_ERROR) return fail_system(host, errno, "cannot wait for the host");
        if (woken & WOKEN_BY_CANCEL)
            return fail(host, KA_CANCELLED, "%.300s: the pause before a new start was cancelled", host->module);
    }
    if (end <= deadline) return KA_DONE;
    return fail(host, KA_DEADLINE, "%.300s: after %d ends in a row the host is not started again within %d ms",
                host->module, host->life.deaths_in_a_row, host->options.deadline_ms);
}

int32_t start_again(ka_host *host, int64_t deadline)
{
    host->life.state = STATE_ENDED;
    if (await_pause(host, deadline) != KA_DONE) return host->error.error_class;
    if (start_host(host, deadline) != KA_DONE) return fail_and_end(host);
    return clear_error(host);
}

int32_t start_with_more_room(ka_host *host, int64_t deadline)
{
    end_host(host);
    if (start_host(host, deadline) != KA_DONE) return fail_and_end(host);
    return clear_error(host);
}

/* The new process has a deadline of its own, and what ended or cancelled the call does not end its start. */
int32_t restart_at_once(ka_host *host, int32_t error_class)
{
    if (host->options.restart != KA_RESTART_AT_ONCE || host->process.pid_fd != -1 || !can_restart(host))
        return error_class;
    if (pause_end(host) > now_ns()) return error_class;
    const ka_error error = host->error;
    const t_MOMENT moment = host->moment;
    t_LAST_END last_end = host->last_end;
    host->last_end = no_last_end;
    const int cancel_fd = host->options.cancel_fd;
    host->options.cancel_fd = -1;
    open_to_cancel(host);
    const int32_t status = open_process(host);
    host->options.cancel_fd = cancel_fd;
    if (status == KA_CANCELLED) {
        forget_last_end(&last_end);
        return status;
    }
    forget_last_end(&host->last_end);
    host->error = error;
    host->moment = moment;
    host->last_end = last_end;
    return error_class;
}

int32_t ka_restart(ka_host *host)
{
    HOLD_CANCELLATION;
    COME_IN(host, visit.refusal);
    if (take_turn(host, TURN_RESTART) != KA_DONE) return host->error.error_class;
    if (!host->life.openable)
        return fail(host, KA_ARGUMENT, "%.300s was never opened: its options are wrong", host->module);
    const int64_t needed = host->error.error_class == KA_TOO_BIG ? host->error.needed_bytes : 0;
    end_host(host);
    host->building = no_building;
    clear_error(host);
    open_to_cancel(host);
    if (needed != 0) grow_segment(host, needed);
    return open_process(host);
}
