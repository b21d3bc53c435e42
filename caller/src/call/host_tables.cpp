/* SPDX-License-Identifier: MIT
 *
 * The tables of a running host. */
#include "base/clock.h"
#include "base/thread.h"
#include "host/cancel.h"
#include "host/host.h"
#include "host/owner.h"
#include "prepare.h"
#include "process/end.h"

static int32_t read_tables(ka_host *host)
{
    char why[200] = "";
    if (check_alive(host) != KA_DONE) return host->error.error_class;
    if (host->prepared.tables) return KA_DONE;
    if (await_ready(host, deadline_after_ms(host->options.deadline_ms)) != KA_DONE) return host->error.error_class;
    load_tables(host, why, sizeof why);
    if (host->prepared.tables) return KA_DONE;
    return fail(host, KA_SYSTEM, "%.200s: its tables cannot be read: %s", host->module, why);
}

const ka_tables *ka_host_tables(ka_host *host)
{
    HOLD_CANCELLATION;
    COME_IN(host, nullptr);
    if (take_turn(host, TURN_TABLES) != KA_DONE) return nullptr;
    const bool is_start = open_to_cancel(host);
    int32_t status = read_tables(host);
    if (is_start) status = settle_cancel(host, status);
    return status == KA_DONE ? host->prepared.tables : nullptr;
}
