/* SPDX-License-Identifier: MIT
 *
 * See owner.h. */
#include "owner.h"

#include <stdio.h>
#include <stdlib.h>

constinit thread_local const ka_host *refused_by = nullptr;

/* Why, or what the last error of a host was that this thread has removed. Large, so it is allocated at first use. */
static thread_local ka_error refusal;

/* ---- Coming in ------------------------------------------------------------------------------------------------- */

static int32_t refuse(const ka_host *host, const char *function)
{
    const bool is_closed = host->owner.load(std::memory_order_relaxed) == NOBODY_EVER;
    refused_by = host;
    refusal = {};
    refusal.error_class = is_closed ? KA_CLOSED : KA_ARGUMENT;
    refusal.retry = KA_RETRY_NO;
    refusal.exit_status = -1;
    if (is_closed)
        snprintf(refusal.message, sizeof refusal.message, "%s: the host was closed", function);
    else
        snprintf(refusal.message, sizeof refusal.message, "%s: the host is used by another thread", function);
    return refusal.error_class;
}

[[gnu::cold, gnu::noinline]] int32_t come_in_again(ka_host *host, const char *function)
{
    if (host->owner.load(std::memory_order_relaxed) == this_thread()) return KA_DONE;
    return refuse(host, function);
}

const ka_error *error_of(const ka_host *host)
{
    if (refused_by == host) return &refusal;
    const uintptr_t owner = host->owner.load(std::memory_order_acquire);
    if (owner == 0 || owner == this_thread()) return &host->error;
    refuse(host, "ka_last_error");
    return &refusal;
}

/* ---- The end --------------------------------------------------------------------------------------------------- */

/* Another thread may have come in since, and removes it then. This one has done its part by its pointer: it finds the
   error in its own record. */
[[gnu::cold, gnu::noinline]] void remove_retired(ka_host *host)
{
    if (!take_host(host, this_thread())) return;
    refusal = host->error;
    refused_by = host;
    host->remove(host);
}

enum : uint32_t { KEPT_RECORDS = 64 };
static std::atomic<ka_host *> closed_hosts[KEPT_RECORDS];
static std::atomic<uint32_t> closed_count;

void bury(ka_host *host)
{
    host->owner.store(NOBODY_EVER, std::memory_order_release);
    free(closed_hosts[closed_count++ % KEPT_RECORDS].exchange(host));
}
