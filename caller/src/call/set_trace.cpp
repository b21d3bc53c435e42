/* SPDX-License-Identifier: MIT
 *
 * ka_set_trace. module/trace_level.cpp writes the level into the process; prepare.cpp has that done for a host that
 * was opened with a level. */
#include "base/clock.h"
#include "base/thread.h"
#include "host/cancel.h"
#include "host/host.h"
#include "host/options.h"
#include "host/owner.h"
#include "prepare.h"
#include "process/end.h"

static int32_t write_trace_level(ka_host *host)
{
    if (check_alive(host) != KA_DONE) return host->error.error_class;
    if (await_ready(host, deadline_after_ms(host->options.deadline_ms)) != KA_DONE) return host->error.error_class;
    return apply_trace_level(host);
}

int32_t ka_set_trace(ka_host *host, int32_t level)
{
    HOLD_CANCELLATION;
    COME_IN(host, visit.refusal);
    if (check_trace_level(host, level) != KA_DONE) return KA_ARGUMENT;
    host->options.trace_level = level;
    if (take_turn(host, TURN_TRACE) != KA_DONE) return host->error.error_class; /* kept for a restart */
    const bool is_start = open_to_cancel(host);
    const int32_t status = write_trace_level(host);
    return is_start ? settle_cancel(host, status) : status;
}
