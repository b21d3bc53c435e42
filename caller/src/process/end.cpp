/* SPDX-License-Identifier: MIT
 *
 * See end.h. */
#include "end.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/fd.h"
#include "base/pidfd.h"
#include "block/segment.h"
#include "doorbell/doorbell.h"
#include "doorbell/rest.h"
#include "doorbell/wait.h"
#include "host/owned.h"
#include "regain.h"
#include "stderr_ring.h"
#include "tracer.h"

/* Exit statuses of a host that could not start: its own, and the loader's. */
enum { HOST_REFUSED = 2, LOADER_REFUSED = 127 };

void free_remains(t_REMAINS *remains)
{
    free(remains->backtrace);
    ka_free_tables(remains->tables);
    free(remains->output);
    *remains = {};
}

void forget_preparations(ka_host *host)
{
    ka_free_tables(host->tables);
    host->tables = nullptr;
    host->prepared = false;
}

/* The process is dead: all it wrote stands in the pipe or in the ring. */
static void keep_output(ka_host *host)
{
    if (!host->ring) return;
    host->remains.output = static_cast<char *>(malloc(static_cast<size_t>(host->options.ring_bytes)));
    if (!host->remains.output) return;
    host->remains.output_length = read_ring(host->ring, host->remains.output, host->options.ring_bytes);
}

static bool is_child(const ka_host *host)
{
    siginfo_t info;
    return host->pid != 0 && look_at_child(host->pid_fd, host->pid, &info, WNOWAIT) == 0;
}

/* What the module has forked is left in the host's group. The group has the host's number, which belongs to nobody
   else until the zombie is taken: so nothing is signalled once the program has taken it. */
static bool end_group(const ka_host *host)
{
    return is_child(host) && kill(-host->pid, SIGKILL) == 0;
}

/* Takes the zombie, and what there is to know about it. */
static void bury(ka_host *host, bool by_library)
{
    siginfo_t info;
    end_group(host);
    look_at_child(host->pid_fd, host->pid, &info, 0);
    free_remains(&host->remains);
    host->remains.of_error = true;
    host->remains.by_library = by_library;
    host->remains.overwritten = host->overwritten;
    host->remains.pid = host->pid;
    host->remains.how = info.si_pid != 0 ? info.si_code : 0;
    host->remains.status = info.si_status;
    host->remains.backtrace = finish_inspection(host);
    host->remains.tables = host->tables;
    host->tables = nullptr;
    keep_output(host);
}

static void release_process(ka_host *host)
{
    disown_lost(host);
    close_doorbell(host);
    close_ring(host->ring);
    host->ring = nullptr;
    close_fd(&host->pid_fd);
    close_fd(&host->status_fd);
    close_fd(&host->syscall_fd);
    host->pid = 0;
    host->answered = host->seen_waiting = false;
    host->state = STATE_ENDED;
}

/* By its number where the descriptor was lost and cannot be had again: it belongs to an unreaped child. */
static int signal_child(const ka_host *host, int signal)
{
    if (host->pid_fd != -1) return signal_process(host->pid_fd, signal);
    if (!is_child(host)) return ESRCH;
    return kill(host->pid, signal) == 0 ? 0 : errno;
}

static bool is_dead(const ka_host *host)
{
    siginfo_t info;
    const int error = look_at_child(host->pid_fd, host->pid, &info, WNOWAIT);
    return error == ECHILD || info.si_pid != 0;
}

/* True once the process is dead. Where the system refuses the wait it is looked at every millisecond. */
static bool dead_by(const ka_host *host, int64_t until)
{
    constexpr struct timespec moment = {0, NS_PER_MS};
    for (;;) {
        const int woken = host->pid_fd != -1 ? wait_until(host, -1, until) : WOKEN_BY_ERROR;
        if (woken & WOKEN_BY_DEATH) return true;
        if (woken == 0) return false;
        if ((woken & WOKEN_BY_ERROR) == 0) continue;
        if (is_dead(host)) return true;
        if (now_ns() >= until) return false;
        clock_nanosleep(CLOCK_MONOTONIC, 0, &moment, nullptr);
    }
}

/* A stopped host takes SIGTERM when it goes on. */
static bool dies_in_order(const ka_host *host)
{
    const int error = signal_child(host, SIGTERM);
    if (error != 0 && error != ESRCH) return false;
    signal_child(host, SIGCONT);
    return dead_by(host, deadline_after_ms(host->options.grace_ms));
}

/* The kernel may take a moment for it. Where the descriptor is refused, SIGKILL to the group reaches the host too. */
static bool dies_by_force(const ka_host *host, int *error)
{
    *error = signal_child(host, SIGKILL);
    if (*error != 0 && end_group(host)) *error = 0;
    return dead_by(host, *error == 0 ? deadline_after_ms(5000) : 0);
}

static void end_process(ka_host *host)
{
    const int cancel_fd = host->options.cancel_fd;
    host->options.cancel_fd = -1; /* an end is not cancelled */
    int error = 0;
    if (!dies_in_order(host) && !dies_by_force(host, &error)) host->left = {host->pid, error};
    host->options.cancel_fd = cancel_fd;
}

void end_host(ka_host *host)
{
    regain_process(host);
    if (host->pid_fd != -1 || is_child(host)) {
        end_process(host);
        bury(host, true);
        if (host->left.pid == host->pid) leave_doorbell(host);
    }
    release_process(host);
}

/* A host that is late, or that nobody wants to wait for any longer, is inspected before it is ended. */
int32_t lose_host(ka_host *host)
{
    const int32_t error_class = host->error.error_class;
    if (error_class == KA_DEADLINE || error_class == KA_CANCELLED) inspect_hanging(host);
    end_host(host);
    host->losses++;
    return host->error.error_class;
}

/* ---- Found dead ------------------------------------------------------------------------------------------------ */

static void describe_death(ka_host *host, const t_REMAINS *remains, char *text, size_t size)
{
    if (remains->how == 0) {
        snprintf(text, size, "ended, how is not known (the program does not leave its children to the library)");
    } else if (remains->how == CLD_EXITED) {
        host->error.exit_status = remains->status;
        snprintf(text, size, "ended with status %d", remains->status);
    } else {
        const char *name = sigabbrev_np(remains->status);
        const char *meaning = sigdescr_np(remains->status);
        host->error.signal = remains->status;
        snprintf(text, size, "was killed by SIG%s (%s)", name ? name : "?", meaning ? meaning : "unknown");
    }
}

/* What was found is not the death of the process, but that its descriptor is gone. */
static bool is_lost(ka_host *host)
{
    return host->pid_fd != -1 ? !owns_process(host) : !is_dead(host);
}

static int32_t fail_lost(ka_host *host)
{
    fail(host, KA_SYSTEM, "%.300s: the program closed descriptors of the library%s", host->module,
         host->pid_fd != -1 ? " during a call" : ", and the system refuses others");
    return lose_host(host);
}

/* A function can end its process with any status. So the status alone does not tell that the host never started: that
   needs a host that nobody has seen waiting, and no request that it may have taken. A request that was sent to a
   process which was ending already is not found pending, and counts as taken. */
static bool may_never_have_started(ka_host *host)
{
    return !host->answered && !host->seen_waiting && (!host->sent || request_is_pending(host));
}

static bool is_failed_start(const t_REMAINS *remains)
{
    return remains->how == CLD_EXITED && (remains->status == HOST_REFUSED || remains->status == LOADER_REFUSED);
}

static void add_overwritten(ka_host *host)
{
    char fields[64];
    const size_t length = strlen(host->error.message);
    if (host->remains.overwritten == 0) return;
    write_overwritten(host->remains.overwritten, fields, sizeof fields);
    snprintf(host->error.message + length, sizeof host->error.message - length,
             "; the module had overwritten the block's header (%s)", fields);
}

int32_t fail_dead(ka_host *host, const char *where)
{
    if (is_lost(host)) return fail_lost(host);
    const bool never_started = may_never_have_started(host);
    bury(host, false);
    const t_REMAINS *remains = &host->remains;
    if (never_started && is_failed_start(remains)) {
        fail(host, KA_START, "%.300s ended at start with status %d", host->module, remains->status);
        host->error.exit_status = remains->status;
    } else {
        char text[120];
        fail(host, KA_DIED, " ");
        describe_death(host, remains, text, sizeof text);
        set_error_text(host, "%.200s: the host %s %s", host->module, text, where);
        add_overwritten(host);
    }
    host->remains.of_error = true;
    release_process(host);
    host->losses++;
    return host->error.error_class;
}
