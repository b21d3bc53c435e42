/* SPDX-License-Identifier: MIT
 *
 * Error records: one class, one line of text, and whether the call may be made again. */
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "base/clock.h"
#include "base/fd.h"
#include "base/name.h"
#include "base/printable.h"
#include "host.h"
#include "owner.h"

static const ka_error no_memory = {
    .error_class = KA_SYSTEM,
    .retry = KA_RETRY_YES,
    .sys_errno = ENOMEM,
    .exit_status = -1,
    .signal = 0,
    .return_code = 0,
    .argument = 0,
    .needed_bytes = 0,
    .message = "there is no memory for another host",
};

const ka_error *ka_last_error(const ka_host *host)
{
    const ka_error *error = host ? error_of(host) : nullptr;
    return error ? error : &no_memory;
}

const char *ka_error_name(int32_t error_class)
{
    static constexpr const char *names[] = {"done",    "not started", "refused",      "died",     "deadline passed",
                                            "too big", "closed",      "system error", "argument", "cancelled"};
    static constexpr int32_t count = sizeof names / sizeof names[0];
    return error_class >= 0 && error_class < count ? names[error_class] : "unknown";
}

/* A host that will not come back is closed for every further call. */
static int32_t retry_after(const ka_host *host, int32_t error_class)
{
    const bool sent = host->building.sent;
    switch (error_class) {
    case KA_CLOSED:
        return can_restart(host) ? KA_RETRY_YES : KA_RETRY_NO;
    case KA_DIED:
    case KA_DEADLINE:
    case KA_SYSTEM:
    case KA_CANCELLED:
        return sent ? KA_RETRY_UNSURE : KA_RETRY_YES;
    default:
        return KA_RETRY_NO;
    }
}

int32_t clear_error(ka_host *host)
{
    ka_error *error = &host->error;
    error->error_class = KA_DONE;
    error->retry = KA_RETRY_NO;
    error->sys_errno = 0;
    error->exit_status = -1;
    error->signal = 0;
    error->return_code = 0;
    error->argument = 0;
    error->needed_bytes = 0;
    error->message[0] = '\0';
    host->last_end.of_error = false;
    return KA_DONE;
}

static void note_moment(ka_host *host)
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    host->moment.time_ns = static_cast<int64_t>(now.tv_sec) * NS_PER_S + now.tv_nsec;
    host->moment.after_ns = host->building.called_ns != 0 ? now_ns() - host->building.called_ns : -1;
    host->moment.in_callback = host->building.in_callback;
}

/* Paths, names in files and words of users can be in it. */
static void print_error_message(ka_host *host, const char *format, va_list values)
{
    char text[sizeof host->error.message];
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the callers' va_start is not understood
    vsnprintf(text, sizeof text, format, values);
    copy_printable(host->error.message, sizeof host->error.message, text);
}

void set_error_message(ka_host *host, const char *format, ...)
{
    va_list values;
    va_start(values, format);
    print_error_message(host, format, values);
    va_end(values);
}

int32_t fail(ka_host *host, int32_t error_class, const char *format, ...)
{
    clear_error(host);
    note_moment(host);
    host->error.error_class = error_class;
    host->error.retry = retry_after(host, error_class);
    va_list values;
    va_start(values, format);
    print_error_message(host, format, values);
    va_end(values);
    return error_class;
}

int32_t fail_system(ka_host *host, int error_number, const char *what)
{
    fail(host, KA_SYSTEM, "%s: %s", what, errno_text(error_number));
    host->error.sys_errno = error_number;
    return KA_SYSTEM;
}
