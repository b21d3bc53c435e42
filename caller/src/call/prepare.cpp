/* SPDX-License-Identifier: MIT
 *
 * Before the first call: wait until the host waits for calls (its libraries are loaded, dll_setup has run), then read
 * its tables and set its trace level. Once per process. */
#include "prepare.h"

#include <errno.h>

#include "base/clock.h"
#include "block/annex.h"
#include "block/check.h"
#include "doorbell/rest.h"
#include "doorbell/wait.h"
#include "module/image.h"
#include "module/tables.h"
#include "process/end.h"
#include "process/regain.h"

enum : int64_t { FIRST_LOOK_NS = 50000, LONGEST_LOOK_NS = 2000000, MOST_STARTS_NS = 1000000 };

/* ---- Ready ----------------------------------------------------------------------------------------------------- */

static int32_t fail_not_ready(ka_host *host, int woken)
{
    if (woken & WOKEN_BY_ERROR)
        fail_system(host, errno, "cannot wait for the host");
    else if (woken & WOKEN_BY_CANCEL)
        fail(host, KA_CANCELLED, "%.300s: the start was cancelled", host->module);
    else
        fail(host, KA_DEADLINE, "%.300s: the host was not ready for a call within %d ms", host->module,
             host->options.deadline_ms);
    return fail_and_end(host);
}

/* So many looks in a row, a moment apart, have shown the host in the wait for an answer that will not come. */
enum { LOOKS_AT_CALLBACK = 50 };

static int32_t fail_callback_at_start(ka_host *host)
{
    fail(host, KA_START,
         "cannot start %.300s: dll_setup calls back, and call-backs before the first call are not answered",
         host->module);
    return fail_and_end(host);
}

/* A host with an annex offers it when it is ready. */
static t_REST look_for_start(ka_host *host)
{
    return host_uses_annex(host) ? AT_REST_IDLE : look_for_first_rest(host);
}

/* A death is seen after it, in a moment; a cancellation must be seen at once. What is offered may not be to be used,
   as in another pid namespace: then there is nothing to sleep on. */
static int await_offer(ka_host *host, int64_t until)
{
    if (host->options.cancel_fd != -1) return wait_until(host, -1, until);
    sleep_until_offer(host, until);
    return wait_until(host, -1, host_uses_annex(host) ? 0 : until);
}

/* Most hosts are ready within this time, and say so; looking at them earlier takes processor time that they need. One
   that has no annex is looked at after it, too. */
static void await_most_offers(ka_host *host, int64_t deadline)
{
    if (host->options.transport == KA_TRANSPORT_PLAIN || host->options.cancel_fd != -1) return;
    const int64_t until = now_ns() + MOST_STARTS_NS;
    sleep_until_offer(host, until < deadline ? until : deadline);
}

/* A host that has answered was ready then. Where /proc cannot be read, there is nothing to wait for. */
int32_t await_ready(ka_host *host, int64_t deadline)
{
    if (host->process.answered) return KA_DONE;
    await_most_offers(host, deadline);
    int64_t pause = FIRST_LOOK_NS;
    int looks = 0;
    t_REST rest;
    while ((rest = look_for_start(host)) != AT_REST_IDLE && rest != REST_UNKNOWABLE) {
        looks = rest == AT_REST_IN_CALLBACK ? looks + 1 : 0;
        if (looks == LOOKS_AT_CALLBACK) return fail_callback_at_start(host);
        const int64_t look_again = now_ns() + pause;
        const int woken = await_offer(host, look_again < deadline ? look_again : deadline);
        if (woken & WOKEN_BY_DEATH) return fail_dead(host, "before its first call");
        if ((woken & (WOKEN_BY_CANCEL | WOKEN_BY_ERROR)) || now_ns() >= deadline) return fail_not_ready(host, woken);
        pause = pause * 2 < LONGEST_LOOK_NS ? pause * 2 : static_cast<int64_t>(LONGEST_LOOK_NS);
    }
    host->process.seen_waiting = rest == AT_REST_IDLE;
    return KA_DONE;
}

/* ---- Tables ---------------------------------------------------------------------------------------------------- */

/* Of the file only when the system guards the memory of processes: what is filled as the module starts is missing
   there, and a table without any function is most likely one of that kind. */
static ka_tables *read_from_file(const ka_host *host)
{
    char ignored[8];
    ka_tables *tables = ka_read_tables(host->module, ignored, sizeof ignored);
    if (tables && tables->function_count > 0 && !tables->filled_at_start) return tables;
    ka_free_tables(tables);
    return nullptr;
}

void load_tables(ka_host *host, char *why, size_t size)
{
    int32_t error_class = KA_DONE;
    t_IMAGE *image = open_process_image(host->process.pid, &error_class, why, size);
    if (image) host->prepared.tables = read_image_tables(image, why, size);
    close_image(image);
    if (error_class == KA_SYSTEM) host->prepared.tables = read_from_file(host);
}

/* In a call-back the exchange that goes on looks after the host. */
int32_t check_alive(ka_host *host)
{
    if (host->life.state == STATE_CALLING || host->life.state == STATE_ASKED) return KA_DONE;
    if (regain_process(host) && (wait_until(host, -1, 0) & WOKEN_BY_DEATH) == 0) return KA_DONE;
    return fail_dead(host, host->process.answered ? "between calls" : "before its first call");
}

/* ---- Trace level ----------------------------------------------------------------------------------------------- */

int32_t apply_trace_level(ka_host *host)
{
    char why[200] = "";
    if (ka_trace_process(host->process.pid, &host->options.trace_level, nullptr, why, sizeof why) == KA_DONE)
        return KA_DONE;
    return fail(host, KA_SYSTEM, "%.200s: its trace level cannot be set: %s", host->module, why);
}

/* ---- Every call ------------------------------------------------------------------------------------------------ */

/* A module whose tables cannot be read is called unchecked. */
static int32_t prepare(ka_host *host, int64_t deadline)
{
    char why[200];
    const bool checked = host->options.checking == KA_CHECKED;
    if (!checked && host->options.trace_level == 0) return KA_DONE;
    if (await_ready(host, deadline) != KA_DONE) return host->error.error_class;
    if (host->options.trace_level != 0 && apply_trace_level(host) != KA_DONE) return KA_SYSTEM;
    if (checked && !host->prepared.tables) load_tables(host, why, sizeof why);
    host->prepared.done = true;
    return KA_DONE;
}

int32_t prepare_and_check_call(ka_host *host, int64_t deadline)
{
    if (!host->prepared.done && prepare(host, deadline) != KA_DONE) return host->error.error_class;
    return host->prepared.tables && host->options.checking == KA_CHECKED ? check_call(host) : KA_DONE;
}
