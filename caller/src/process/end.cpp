/* SPDX-License-Identifier: MIT
 *
 * See end.h. SIGTERM first; SIGKILL when grace_ms is over. */
#include "end.h"

#include <errno.h>
#include <poll.h>
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
#include "command.h"
#include "doorbell/doorbell.h"
#include "doorbell/rest.h"
#include "doorbell/wait.h"
#include "doorbell/wait_fd.h"
#include "guard.h"
#include "host/cancel.h"
#include "host/owned.h"
#include "ka/dll_codes.h"
#include "regain.h"
#include "stderr_ring.h"
#include "tracer.h"

void forget_last_end(t_LAST_END *last_end)
{
    free(last_end->backtrace);
    ka_free_tables(last_end->tables);
    free(last_end->output);
    *last_end = no_last_end;
}

void forget_preparations(ka_host *host)
{
    ka_free_tables(host->prepared.tables);
    host->prepared = nothing_prepared;
}

/* The process is dead: all it wrote is in the pipe or in the ring. */
static void keep_output(ka_host *host)
{
    if (!host->process.stderr_ring) return;
    host->last_end.output = static_cast<char *>(malloc(static_cast<size_t>(host->options.ring_bytes)));
    if (!host->last_end.output) return;
    host->last_end.output_bytes = look_at_stderr_ring(host->process.stderr_ring);
    host->last_end.output_length =
        read_stderr_ring(host->process.stderr_ring, host->last_end.output, host->options.ring_bytes);
}

static bool is_child(const ka_host *host)
{
    siginfo_t info;
    return host->process.pid != 0 && look_at_child(host->process.pid_fd, host->process.pid, &info, WNOWAIT) == 0;
}

/* Processes that the module forked are left in the host's group. The group has the host's number, which no other
   process gets until the zombie is taken: so nothing is signalled once the program has taken it. */
static bool end_group(const ka_host *host)
{
    return is_child(host) && kill(-host->process.pid, SIGKILL) == 0;
}

/* Takes the zombie, and what there is to know about it. */
static void reap(ka_host *host, bool by_library)
{
    siginfo_t info;
    end_group(host);
    if (host->process.command == 0)
        look_at_child(host->process.pid_fd, host->process.pid, &info, 0);
    else
        look_how_it_ended(host, &info);
    forget_last_end(&host->last_end);
    host->last_end.of_error = true;
    host->last_end.by_library = by_library;
    host->last_end.overwritten = host->building.overwritten;
    host->last_end.pid = host->process.pid;
    host->last_end.how = info.si_pid != 0 || host->process.command != 0 ? info.si_code : 0;
    host->last_end.status = info.si_status;
    host->last_end.backtrace = finish_inspection(host);
    end_command(host);
    end_guard(host);
    end_strays(host);
    host->last_end.tables = host->prepared.tables;
    host->prepared.tables = nullptr;
    keep_output(host);
}

static void release_process(ka_host *host)
{
    disown_lost(host);
    disarm_wait_fd(host);
    close_doorbell(host);
    close_stderr_ring(host->process.stderr_ring);
    close_fd(&host->process.pid_fd);
    close_fd(&host->process.status_fd);
    close_fd(&host->process.syscall_fd);
    host->process = no_process;
    host->shown_pid = 0;
    host->life.state = STATE_ENDED;
}

/* By its number where the descriptor was lost and cannot be opened again: it belongs to an unreaped child. */
static int signal_child(const ka_host *host, int signal)
{
    if (host->process.pid_fd != -1) return signal_process(host->process.pid_fd, signal);
    if (!is_child(host)) return ESRCH;
    return kill(host->process.pid, signal) == 0 ? 0 : errno;
}

static bool is_dead(const ka_host *host)
{
    siginfo_t info;
    if (host->process.command != 0) {
        struct pollfd end = {host->process.pid_fd, POLLIN, 0};
        return host->process.pid_fd == -1 ? kill(host->process.pid, 0) != 0 : poll(&end, 1, 0) == 1;
    }
    const int error = look_at_child(host->process.pid_fd, host->process.pid, &info, WNOWAIT);
    return error == ECHILD || info.si_pid != 0;
}

/* True once the process is dead. Where the system refuses the wait it is looked at every millisecond. */
static bool dead_by(const ka_host *host, int64_t until)
{
    constexpr struct timespec moment = {0, NS_PER_MS};
    for (;;) {
        const int woken = host->process.pid_fd != -1 ? wait_until(host, -1, until) : WOKEN_BY_ERROR;
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
    host->cancel.is_ending = true;
    int error = 0;
    if (!dies_in_order(host) && !dies_by_force(host, &error)) host->life.left = {host->process.pid, error};
    host->options.cancel_fd = cancel_fd;
    host->cancel.is_ending = false;
}

void end_host(ka_host *host)
{
    regain_process(host);
    regain_doorbell(host);
    if (host->process.pid_fd != -1 || host->process.command != 0 || is_child(host)) {
        end_process(host);
        reap(host, true);
        if (host->life.left.pid == host->process.pid) leave_doorbell(host);
    }
    release_process(host);
}

/* A host that is late, or whose call was cancelled, is inspected before it is ended. */
int32_t fail_and_end(ka_host *host)
{
    const int32_t error_class = host->error.error_class;
    if (error_class == KA_DEADLINE || error_class == KA_CANCELLED) inspect_hanging(host);
    end_host(host);
    host->life.deaths_in_a_row++;
    return host->error.error_class;
}

/* What failed at the same time is forgotten: a ka_cancel has said that it ended this. */
int32_t settle_cancel(ka_host *host, int32_t status)
{
    if (close_to_cancel(host) || status == KA_CANCELLED) return status;
    const bool of_error = host->last_end.of_error;
    if (host->building.called_ns != 0)
        fail(host, KA_CANCELLED, "%.300s: a call of \"%s\" was cancelled", host->module, host->function);
    else
        fail(host, KA_CANCELLED, "the start of %.300s was cancelled", host->module);
    host->last_end.of_error = of_error && host->process.pid == 0;
    return host->process.pid != 0 ? fail_and_end(host) : KA_CANCELLED;
}

/* ---- Found dead ------------------------------------------------------------------------------------------------ */

static void describe_death(ka_host *host, const t_LAST_END *last_end, char *text, size_t size)
{
    if (last_end->how == 0) {
        snprintf(text, size, "%s",
                 host->life.words
                     ? "ended, how is not known (it was a command's child, and the system does not tell)"
                     : "ended, how is not known (the program does not leave its children to the library)");
    } else if (last_end->how == CLD_EXITED) {
        host->error.exit_status = last_end->status;
        snprintf(text, size, "ended with status %d", last_end->status);
    } else {
        const char *name = sigabbrev_np(last_end->status);
        const char *meaning = sigdescr_np(last_end->status);
        host->error.signal = last_end->status;
        snprintf(text, size, "was killed by SIG%s (%s)", name ? name : "?", meaning ? meaning : "unknown");
    }
}

/* Not the death of the process was found, but that its descriptor is gone. */
static bool is_lost(ka_host *host)
{
    return host->process.pid_fd != -1 ? !owns_process(host) : !is_dead(host);
}

static int32_t fail_lost(ka_host *host)
{
    fail(host, KA_SYSTEM, "%.300s: the program closed file descriptors of the library%s", host->module,
         host->process.pid_fd != -1 ? " during a call" : ", and the system refuses others");
    return fail_and_end(host);
}

/* A function can end its process with any status. So the status alone does not show that the host never started: that
   needs a host that was never seen waiting, and no request that it may have taken. A request that was sent to a
   process which was ending already is not found pending, and counts as taken. */
static bool may_never_have_started(ka_host *host)
{
    return !host->process.answered && !host->process.seen_waiting &&
           (!host->building.sent || request_is_pending(host));
}

static bool is_failed_start(const t_LAST_END *last_end)
{
    return last_end->how == CLD_EXITED && (last_end->status == KA_EXIT_START || last_end->status == EXIT_LOADER);
}

static void add_overwritten(ka_host *host)
{
    char fields[64];
    const size_t length = strlen(host->error.message);
    if (host->last_end.overwritten == 0) return;
    write_overwritten(host->last_end.overwritten, fields, sizeof fields);
    snprintf(host->error.message + length, sizeof host->error.message - length,
             "; the module had overwritten the block's header (%s)", fields);
}

int32_t fail_command(ka_host *host)
{
    char text[120];
    reap(host, false);
    fail(host, KA_START, " ");
    describe_death(host, &host->last_end, text, sizeof text);
    set_error_message(host, "cannot start %.200s: its command \"%.60s\" %s", host->module, host->life.words[0], text);
    host->last_end.of_error = true;
    release_process(host);
    return KA_START;
}

int32_t fail_dead(ka_host *host, const char *where)
{
    if (is_lost(host)) return fail_lost(host);
    const bool never_started = may_never_have_started(host);
    reap(host, false);
    const t_LAST_END *last_end = &host->last_end;
    if (never_started && is_failed_start(last_end)) {
        fail(host, KA_START, "%.300s ended at start with status %d", host->module, last_end->status);
        host->error.exit_status = last_end->status;
    } else {
        char text[120];
        fail(host, KA_DIED, " ");
        describe_death(host, last_end, text, sizeof text);
        set_error_message(host, "%.200s: the host %s %s", host->module, text, where);
        add_overwritten(host);
    }
    host->last_end.of_error = true;
    release_process(host);
    host->life.deaths_in_a_row++;
    return host->error.error_class;
}
