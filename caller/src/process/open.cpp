/* SPDX-License-Identifier: MIT
 *
 * See open.h. */
#include "open.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/random.h"
#include "base/thread.h"
#include "block/abandoned.h"
#include "block/segment.h"
#include "close.h"
#include "doorbell/doorbell.h"
#include "end.h"
#include "fork.h"
#include "host/cancel.h"
#include "host/options.h"
#include "host/owner.h"
#include "module/program_file.h"
#include "start.h"

int32_t start_host(ka_host *host, int64_t deadline)
{
    char why[128];
    host->life.started_ns = now_ns();
    if (!check_module(host->module, why, sizeof why))
        return fail(host, KA_START, "cannot start %.300s: %s", host->module, why);
    forget_preparations(host);
    if (open_doorbell(host) != KA_DONE) return host->error.error_class;
    return start_process(host, deadline);
}

/* Started for the first time, or when the program asks for it: without a pause. */
int32_t open_process(ka_host *host)
{
    int32_t status = start_host(host, deadline_after_ms(host->options.deadline_ms));
    if (status != KA_DONE) status = fail_and_end(host);
    status = settle_cancel(host, status);
    if (status == KA_DONE) host->life.state = STATE_READY;
    return status;
}

/* For a ka_cancel, in a signal handler or in another thread, from now on. */
static void show_host(ka_host **result, ka_host *host)
{
    open_to_cancel(host);
    __atomic_store_n(result, host, __ATOMIC_SEQ_CST);
}

/* Null when there is no memory. */
static ka_host *new_host(const char *module)
{
    ka_host *host = new_record();
    if (!host) return nullptr;
    host->remove = remove_host;
    clear_error(host);
    host->pipes = no_pipes;
    host->life = no_life;
    host->process = no_process;
    host->waiting = no_waiting;
    host->wait_fd = no_wait_fd;
    seed_random(&host->random);
    host->module = strdup(module);
    if (host->module && enter_host(host) == 0) {
        show_record(host);
        return host;
    }
    free(host->module);
    bury(host);
    return nullptr;
}

int32_t ka_open(ka_host **result, const char *module, const ka_options *options)
{
    HOLD_CANCELLATION;
    ka_host *host = new_host(module);
    __atomic_store_n(result, nullptr, __ATOMIC_SEQ_CST);
    if (!host) return KA_SYSTEM;
    COME_IN(host, visit.refusal);
    show_host(result, host);
    if (take_options(host, options) != KA_DONE || check_sizes(host) != KA_DONE)
        return settle_cancel(host, host->error.error_class);
    host->life.openable = true;
    remove_abandoned_segments(0);
    return open_process(host);
}

int32_t ka_pid(const ka_host *host)
{
    return host->shown_pid;
}
