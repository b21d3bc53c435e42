/* SPDX-License-Identifier: MIT
 *
 * See options.h. Defaults, what is allowed, and ka_set_deadline. */
#include "options.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "owned.h"
#include "owner.h"
#include "surroundings.h"
#include "under.h"

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
    .transport = KA_TRANSPORT_SIGNALS,
    .spin_us = 50,
    .under = nullptr,
    .reasons = KA_REASONS_OFF,
    .environment = nullptr,
    .directory = nullptr,
    .segment_max = 0,
};

void ka_options_init(ka_options *options, uint32_t size)
{
    memset(options, 0, size);
    memcpy(options, &default_options, size < sizeof default_options ? size : sizeof default_options);
    options->size = size;
}

static int32_t fail_negative(ka_host *host, const char *field, int32_t value)
{
    return fail(host, KA_ARGUMENT, "%s is %d; it must not be below 0", field, value);
}

static int32_t fail_deadline(ka_host *host, int32_t deadline_ms)
{
    return fail(host, KA_ARGUMENT, "deadline_ms is %d; it must be above 0", deadline_ms);
}

/* The copy is numbered above the standard descriptors, one of which the program may have closed. */
static int32_t take_error_output(ka_host *host)
{
    const ka_options *options = &host->options;
    if (options->error_output < KA_STDERR_INHERIT || options->error_output > KA_STDERR_RING)
        return fail(host, KA_ARGUMENT, "error_output is %d; it is KA_STDERR_INHERIT (%d) to KA_STDERR_RING (%d)",
                    options->error_output, KA_STDERR_INHERIT, KA_STDERR_RING);
    if (options->error_output == KA_STDERR_RING && options->ring_bytes <= 0)
        return fail(host, KA_ARGUMENT, "ring_bytes is %d; KA_STDERR_RING needs at least 1", options->ring_bytes);
    if (options->reasons != KA_REASONS_OFF && options->reasons != KA_REASONS_ON)
        return fail(host, KA_ARGUMENT, "reasons is %d; it is KA_REASONS_OFF (%d) or KA_REASONS_ON (%d)",
                    options->reasons, KA_REASONS_OFF, KA_REASONS_ON);
    if (options->reasons == KA_REASONS_ON && options->error_output != KA_STDERR_RING)
        return fail(host, KA_ARGUMENT, "reasons is KA_REASONS_ON (%d); it needs error_output KA_STDERR_RING (%d)",
                    KA_REASONS_ON, KA_STDERR_RING);
    if (options->error_output != KA_STDERR_FILE) return KA_DONE;
    host->life.error_fd = fcntl(options->error_fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    note_owned(host, OWNED_ERRORS);
    if (host->life.error_fd != -1) return KA_DONE;
    if (errno != EBADF) return fail_system(host, errno, "cannot copy error_fd");
    return fail(host, KA_ARGUMENT, "error_fd %d is not open", options->error_fd);
}

int32_t check_trace_level(ka_host *host, int32_t level)
{
    if (level >= 0 && level <= KA_TRACE_MAX) return KA_DONE;
    return fail(host, KA_ARGUMENT, "trace_level is %d; it must be 0 to %d", level, KA_TRACE_MAX);
}

static int32_t check_restart(ka_host *host)
{
    const ka_options *options = &host->options;
    if (options->restart < KA_RESTART_NEVER || options->restart > KA_RESTART_AT_ONCE)
        return fail(host, KA_ARGUMENT, "restart is %d; it is KA_RESTART_NEVER (%d) to KA_RESTART_AT_ONCE (%d)",
                    options->restart, KA_RESTART_NEVER, KA_RESTART_AT_ONCE);
    if (options->restart_pause_ms < 0) return fail_negative(host, "restart_pause_ms", options->restart_pause_ms);
    if (options->restart_pause_max_ms < 0)
        return fail_negative(host, "restart_pause_max_ms", options->restart_pause_max_ms);
    return KA_DONE;
}

static int32_t check_transport(ka_host *host)
{
    const ka_options *options = &host->options;
    if (options->transport < KA_TRANSPORT_SIGNALS || options->transport > KA_TRANSPORT_PLAIN)
        return fail(host, KA_ARGUMENT, "transport is %d; it is KA_TRANSPORT_SIGNALS (%d) to KA_TRANSPORT_PLAIN (%d)",
                    options->transport, KA_TRANSPORT_SIGNALS, KA_TRANSPORT_PLAIN);
    if (options->spin_us >= 0 && options->spin_us <= KA_SPIN_MAX) return KA_DONE;
    return fail(host, KA_ARGUMENT, "spin_us is %d; it must be 0 to %d", options->spin_us, KA_SPIN_MAX);
}

/* Fields that the program was compiled without keep their defaults; fields that this library does not know are not
   looked at. */
int32_t take_options(ka_host *host, const ka_options *options)
{
    host->options = default_options;
    if (!options) return KA_DONE;
    if (options->size < offsetof(ka_options, callback))
        return fail(host, KA_ARGUMENT, "options of %u bytes were not filled by ka_options_init", options->size);
    memcpy(&host->options, options, options->size < sizeof *options ? options->size : sizeof *options);
    if (host->options.deadline_ms <= 0) return fail_deadline(host, host->options.deadline_ms);
    if (host->options.checking != KA_CHECKED && host->options.checking != KA_RAW)
        return fail(host, KA_ARGUMENT, "checking is %d; it is KA_CHECKED (%d) or KA_RAW (%d)", host->options.checking,
                    KA_CHECKED, KA_RAW);
    if (check_transport(host) != KA_DONE) return KA_ARGUMENT;
    if (host->options.cancel_fd >= 0 && fcntl(host->options.cancel_fd, F_GETFD) == -1)
        return fail(host, KA_ARGUMENT, "cancel_fd %d is not open", host->options.cancel_fd);
    if (host->options.grace_ms < 0) return fail_negative(host, "grace_ms", host->options.grace_ms);
    if (check_restart(host) != KA_DONE) return KA_ARGUMENT;
    if (check_trace_level(host, host->options.trace_level) != KA_DONE) return KA_ARGUMENT;
    if (take_surroundings(host) != KA_DONE) return host->error.error_class; /* it makes the module's path */
    if (take_under(host) != KA_DONE) return host->error.error_class;
    return take_error_output(host);
}

int32_t ka_set_deadline(ka_host *host, int32_t deadline_ms)
{
    COME_IN(host, visit.refusal);
    if (deadline_ms <= 0) return fail_deadline(host, deadline_ms);
    host->options.deadline_ms = deadline_ms;
    return KA_DONE;
}
