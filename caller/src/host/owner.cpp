/* SPDX-License-Identifier: MIT
 *
 * See owner.h. */
#include "owner.h"

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

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
    const bool is_closed = host->owner.load(RELAXED) == NOBODY_EVER;
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
    if (host->owner.load(RELAXED) == this_thread()) return KA_DONE;
    return refuse(host, function);
}

const ka_error *error_of(const ka_host *host)
{
    if (refused_by == host) return own_record();
    const uintptr_t owner = host->owner.load(ACQUIRE);
    if (owner == 0 || owner == this_thread()) return &host->error;
    refuse(host, "ka_last_error");
    return own_record();
}

/* ---- Records of hosts -------------------------------------------------------------------------------------------
 */

enum : uint32_t { KEPT_RECORDS = 64 };
static t_ATOMIC<ka_host *> closed_hosts[KEPT_RECORDS];
static t_ATOMIC<uint32_t> closed_count;
static t_ATOMIC<ka_host *> spare_records; /* those that were closed before these */

static void lay_aside(ka_host *record)
{
    record->next = spare_records;
    while (!spare_records.compare_exchange(record->next, record))
        ;
}

/* All are taken for a moment: one alone could be taken and laid aside again meanwhile, with others behind it. */
static ka_host *take_spare_record(void)
{
    ka_host *const record = spare_records.exchange(nullptr);
    if (!record) return nullptr;
    ka_host *rest = record->next;
    ka_host *none = nullptr;
    if (spare_records.compare_exchange(none, rest)) return record;
    while (rest) {
        ka_host *const next = rest->next;
        lay_aside(rest);
        rest = next;
    }
    return record;
}

/* Whoever holds a record looks at retired after that. */
static ka_host *reuse_record(void)
{
    ka_host *const record = take_spare_record();
    if (!record) return nullptr;
    record->retired = false;
    if (record->held != 0) {
        lay_aside(record);
        return nullptr;
    }
    record->shown_pid = 0;
    memset(static_cast<void *>(&record->error), 0, sizeof *record - offsetof(ka_host, error));
    return record;
}

ka_host *new_record(void)
{
    ka_host *record = reuse_record();
    if (record) return record;
    record = static_cast<ka_host *>(calloc(1, sizeof *record));
    if (record) record->owner.store(NOBODY_EVER, RELAXED);
    return record;
}

void bury(ka_host *host)
{
    host->owner.store(NOBODY_EVER, RELEASE);
    ka_host *oldest = closed_hosts[closed_count++ % KEPT_RECORDS].exchange(host);
    if (oldest) lay_aside(oldest);
}

/* ---- The end --------------------------------------------------------------------------------------------------- */

/* Another thread may have come in since, and removes it then. This one has done its part by its pointer: it finds the
   error in its own record. */
[[gnu::cold, gnu::noinline]] void remove_retired(ka_host *host)
{
    host->held++;
    if (host->retired && take_host(host, this_thread())) {
        keep_record(host, &host->error);
        host->remove(host);
    }
    host->held--;
}
