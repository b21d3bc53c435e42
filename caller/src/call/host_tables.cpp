/* SPDX-License-Identifier: MIT
 *
 * The tables of a running host. */
#include "base/clock.h"
#include "base/thread.h"
#include "host/host.h"
#include "prepare.h"

const ka_tables *ka_host_tables(ka_host *host)
{
    HOLD_CANCELLATION;
    char why[200] = "";
    if (take_turn(host, TURN_TABLES) != KA_DONE) return nullptr;
    if (check_alive(host) != KA_DONE) return nullptr;
    if (host->prepared.tables) return host->prepared.tables;
    if (await_ready(host, deadline_after_ms(host->options.deadline_ms)) != KA_DONE) return nullptr;
    load_tables(host, why, sizeof why);
    if (!host->prepared.tables) fail(host, KA_SYSTEM, "%.200s: its tables cannot be read: %s", host->module, why);
    return host->prepared.tables;
}
