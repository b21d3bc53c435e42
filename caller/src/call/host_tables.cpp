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
    if (check_alive(host) != KA_DONE) return nullptr;
    if (host->tables) return host->tables;
    if (await_ready(host, deadline_after_ms(host->options.deadline_ms)) != KA_DONE) return nullptr;
    load_tables(host, why, sizeof why);
    if (!host->tables) fail(host, KA_SYSTEM, "%.200s: its tables cannot be read: %s", host->module, why);
    return host->tables;
}
