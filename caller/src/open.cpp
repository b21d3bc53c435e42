/* SPDX-License-Identifier: MIT
 *
 * Opens a host: options, segment, process. */
#include "host.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

static constexpr ka_options default_options = {
    .size = sizeof(ka_options),
    .layout = KA_LAYOUT_NATIVE,
    .segment_bytes = 1 << 20,
    .scratch_bytes = 1 << 16,
    .deadline_ms = 30000,
    .grace_ms = 2000,
    .cancel_fd = -1,
    .callback = nullptr,
    .user = nullptr,
    .checking = KA_CHECKED,
    .waiting = KA_WAIT_SAFE,
    .restart = KA_RESTART_NEVER,
    .restart_pause_ms = 100,
    .restart_pause_max_ms = 10000,
    .trace_level = 0,
    .error_output = KA_STDERR_INHERIT,
    .error_fd = -1,
    .ring_bytes = 1 << 16,
    .inspector = nullptr,
};

void ka_options_init(ka_options *options, uint32_t size)
{
    memset(options, 0, size);
    memcpy(options, &default_options, size < sizeof default_options ? size : sizeof default_options);
    options->size = size;
}

/* Fields that the program was compiled without keep their defaults; fields that this library does not know are not
   looked at. */
static int32_t take_options(ka_host *host, const ka_options *options)
{
    host->options = default_options;
    if (!options) return KA_DONE;
    if (options->size < offsetof(ka_options, callback))
        return fail(host, KA_ARGUMENT, "options of %u bytes were not filled by ka_options_init", options->size);
    memcpy(&host->options, options, options->size < sizeof *options ? options->size : sizeof *options);
    if (host->options.deadline_ms <= 0)
        return fail(host, KA_ARGUMENT, "a deadline of %d ms", host->options.deadline_ms);
    if (host->options.grace_ms < 0) return fail(host, KA_ARGUMENT, "a grace time of %d ms", host->options.grace_ms);
    return KA_DONE;
}

static int32_t start_host(ka_host *host)
{
    const int64_t deadline = deadline_after_ms(host->options.deadline_ms);
    char why[128];
    if (!check_module(host->module, why, sizeof why))
        return fail(host, KA_START, "cannot start %.300s: %s", host->module, why);
    if (check_sizes(host) != KA_DONE) return host->error.error_class;
    hold_doorbell(host);
    host->doorbell_fd = open_doorbell();
    if (host->doorbell_fd == -1) return fail_system(host, errno, "cannot create a signal descriptor");
    return start_process(host, deadline);
}

int32_t ka_open(ka_host **result, const char *module, const ka_options *options)
{
    ka_host *host = static_cast<ka_host *>(calloc(1, sizeof *host));
    *result = host;
    if (!host) return KA_SYSTEM;
    host->error.exit_status = -1;
    host->pid_fd = host->doorbell_fd = host->status_fd = -1;
    seed_random(host);
    host->module = strdup(module);
    if (!host->module) {
        free(host);
        *result = nullptr;
        return KA_SYSTEM;
    }
    int32_t status = take_options(host, options);
    if (status == KA_DONE) status = start_host(host);
    if (status != KA_DONE) {
        end_process(host);
        release_host(host);
        return status;
    }
    host->state = STATE_READY;
    return KA_DONE;
}

int32_t ka_pid(const ka_host *host)
{
    return host->pid;
}
