/* SPDX-License-Identifier: MIT
 *
 * See owner.h. */
#include "owner.h"

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>

constinit thread_local const ka_host *refused_by = nullptr;

/* ---- Records --------------------------------------------------------------------------------------------------- */

static pthread_once_t key_made = PTHREAD_ONCE_INIT;
static pthread_key_t record_key;
static bool has_key;

static void make_key(void)
{
    has_key = pthread_key_create(&record_key, free) == 0;
}

/* This thread's: why it was refused, or what the last error of a host was that it has removed. Allocated at first
   use, and no part of the TLS block: of those the system can place a few bytes only when a library is loaded later.
   Null without memory. */
static ka_error *own_record(void)
{
    pthread_once(&key_made, make_key);
    if (!has_key) return nullptr;
    ka_error *record = static_cast<ka_error *>(pthread_getspecific(record_key));
    if (record) return record;
    record = static_cast<ka_error *>(calloc(1, sizeof *record));
    if (!record || pthread_setspecific(record_key, record) == 0) return record;
    free(record);
    return nullptr;
}

static void keep_record(const ka_host *host, const ka_error *error)
{
    ka_error *record = own_record();
    refused_by = host;
    if (record) *record = *error;
}

/* ---- Coming in ------------------------------------------------------------------------------------------------- */

static int32_t refuse(const ka_host *host, const char *function)
{
    const bool is_closed = host->owner.load(std::memory_order_relaxed) == NOBODY_EVER;
    ka_error refusal = {};
    refusal.error_class = is_closed ? KA_CLOSED : KA_ARGUMENT;
    refusal.retry = KA_RETRY_NO;
    refusal.exit_status = -1;
    if (is_closed)
        snprintf(refusal.message, sizeof refusal.message, "%s: the host was closed", function);
    else
        snprintf(refusal.message, sizeof refusal.message, "%s: the host is used by another thread", function);
    keep_record(host, &refusal);
    return refusal.error_class;
}

[[gnu::cold, gnu::noinline]] int32_t come_in_again(ka_host *host, const char *function)
{
    if (host->owner.load(std::memory_order_relaxed) == this_thread()) return KA_DONE;
    return refuse(host, function);
}

const ka_error *error_of(const ka_host *host)
{
    if (refused_by == host) return own_record();
    const uintptr_t owner = host->owner.load(std::memory_order_acquire);
    if (owner == 0 || owner == this_thread()) return &host->error;
    refuse(host, "ka_last_error");
    return own_record();
}

/* ---- The end --------------------------------------------------------------------------------------------------- */

/* Another thread may have come in since, and removes it then. This one has done its part by its pointer: it finds the
   error in its own record. */
[[gnu::cold, gnu::noinline]] void remove_retired(ka_host *host)
{
    if (!take_host(host, this_thread())) return;
    keep_record(host, &host->error);
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
