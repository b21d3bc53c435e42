/* SPDX-License-Identifier: MIT
 *
 * See start.h. There is no sign of readiness to wait for, and none is needed: the child is born with
 * SIGUSR2 blocked, so a call that is sent before the host waits for one stays pending until it does. The deadline is
 * deadline_ms after what asks for the start began: ka_open (open.cpp), a call that restarts (call.cpp), or ka_restart
 * and a restart at once (restart.cpp).
 *
 * The child is there before the segment, and guards it: the caller creates the segment, marks it for removal, and
 * then sends the child the word to go on. When the caller is killed before that, the child removes what was created;
 * when the child is killed, the caller goes on to mark the segment. */
#include "start.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "base/fd.h"
#include "base/pidfd.h"
#include "block/annex.h"
#include "block/segment.h"
#include "child.h"
#include "doorbell/wait.h"
#include "doorbell/waiters.h"
#include "fork.h"
#include "guard.h"
#include "helper_thread.h"
#include "host/owned.h"
#include "module/program_file.h"
#include "runner.h"
#include "stderr_ring.h"
#include "tracer.h"

static int launch_process(ka_host *host, const t_LAUNCH *launch)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    int pid_fd = -1;
    const pid_t pid = fork_with_pidfd(&pid_fd);
    if (pid == 0) become_host(launch);
    const int error = pid == -1 ? errno : 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (error != 0) return error;
    setpgid(pid, pid); /* what the module forks is found by this number */
    host->process.pid = pid;
    host->shown_pid = pid;
    host->process.pid_fd = pid_fd;
    if (host->waiting.waiter) host->waiting.waiter->process = pid;
    open_views(host);
    host->process.idle_place = {};
    return 0;
}

namespace {
struct t_BIRTH {
    ka_host *host;
    const t_LAUNCH *launch;
    int error;
};
} // namespace

static void launch_for(void *argument)
{
    t_BIRTH *birth = static_cast<t_BIRTH *>(argument);
    birth->error = launch_process(birth->host, birth->launch);
}

/* The kernel ends the host with the thread that started it: that is the helper thread, which stays, or this thread,
   to which a host that waits fast belongs. */
static int launch_from_lasting_thread(ka_host *host, const t_LAUNCH *launch, int64_t deadline)
{
    if (host->options.waiting == KA_WAIT_FAST) return launch_process(host, launch);
    t_BIRTH birth = {host, launch, 0};
    const int error = run_in_helper_thread(launch_for, &birth, deadline);
    return error != 0 ? error : birth.error;
}

static int32_t fail_directory(ka_host *host, int error)
{
    fail(host, KA_START, "cannot start %.200s: cannot enter the directory %.200s: %s", host->module,
         host->life.directory, errno_text(error));
    host->error.sys_errno = error;
    return KA_START;
}

static int32_t fail_exec(ka_host *host, int error)
{
    if (host->life.words) {
        fail(host, KA_START, "cannot start %.200s: the command \"%.60s\" cannot be run: %s", host->module,
             host->life.words[0], errno_text(error));
        host->error.sys_errno = error;
        return KA_START;
    }
    char loader[128];
    const char *module = host->module;
    const int32_t bits = read_loader(module, loader, sizeof loader);
    if (error == ENOENT && loader[0] != '\0')
        fail(host, KA_START, "cannot start %.300s: its loader %s is missing (the %d-bit C library is not installed)",
             module, loader, bits);
    else if (error == ENOEXEC && bits != 0)
        fail(host, KA_START, "cannot start %.300s: this system does not run %d-bit programs", module, bits);
    else
        fail(host, KA_START, "cannot start %.300s: %s", module, errno_text(error));
    host->error.sys_errno = error;
    return KA_START;
}

static int32_t fail_late(ka_host *host)
{
    return fail(host, KA_DEADLINE, "%.300s did not start within %d ms", host->module, host->options.deadline_ms);
}

/* The pipe ends without a word when the module runs, for exec has closed it. */
static int32_t await_exec(ka_host *host, int report_fd, int64_t deadline)
{
    int woken = 0;
    while ((woken & (WOKEN_BY_PIPE | WOKEN_BY_CANCEL)) == 0) {
        woken = wait_until(host, report_fd, deadline);
        if (woken & WOKEN_BY_ERROR) return fail_system(host, errno, "cannot wait for the host");
        if (woken == 0) return fail_late(host);
    }
    if (woken & WOKEN_BY_CANCEL) return fail(host, KA_CANCELLED, "the start of %.300s was cancelled", host->module);
    t_NOT_EXECUTED report;
    const ssize_t length = read(report_fd, &report, sizeof report);
    if (length == -1) return fail_system(host, errno, "cannot read from a pipe");
    if (length != sizeof report) return KA_DONE;
    return report.of_directory ? fail_directory(host, report.error) : fail_exec(host, report.error);
}

/* The child reads until the last writing end is closed, and must not find its reading end the only one when the
   caller writes: that would raise SIGPIPE. So this end stays open until the word is sent. */
static int32_t send_argument(ka_host *host)
{
    char argument[ARGUMENT_SIZE] = {};
    snprintf(argument, sizeof argument, host->options.layout == KA_LAYOUT_64 ? "%d:64" : "%d", host->segment.id);
    if (write(host->pipes.go[1], argument, sizeof argument) != sizeof argument)
        return fail_system(host, errno, "cannot write to a pipe");
    return KA_DONE;
}

/* Without the argument the child ends. */
static void send_refusal(const ka_host *host)
{
    if (write(host->pipes.go[1], "", 1) != 1) return; /* it was never born */
}

static int32_t start_child(ka_host *host, const t_LAUNCH *launch, int64_t deadline)
{
    const int error = launch_from_lasting_thread(host, launch, deadline);
    if (error == ETIMEDOUT) return fail_late(host);
    if (error != 0) return fail_system(host, error, "cannot create a process");
    const int guard_error = host->life.words ? start_guard(host) : 0;
    if (guard_error != 0) return fail_system(host, guard_error, "cannot create a process");
    const int32_t segment = host->segment.base ? share_segment(host) : create_segment(host);
    if (segment != KA_DONE) return segment;
    write_header(host);
    wipe_annex(host);
    if (!host->life.words) start_inspection(host);
    if (send_argument(host) != KA_DONE) return host->error.error_class;
    close_pipe_end(&host->pipes.report[1]); /* the child's is the last */
    const int32_t result = await_exec(host, host->pipes.report[0], deadline);
    return result == KA_DONE && host->life.words ? await_host(host, deadline) : result;
}

static int32_t start_with_pipes(ka_host *host, t_LAUNCH *launch, int64_t deadline)
{
    int error = open_pipes(host);
    if (error != 0) return fail_system(host, error, "cannot create a pipe");
    disown_lost(host); /* error_fd is kept from process to process */
    if (host->options.error_output == KA_STDERR_FILE && host->life.error_fd == -1)
        return fail_system(host, EBADF, "the program has closed the library's copy of error_fd");
    if (host->options.error_output != KA_STDERR_RING) {
        launch->error_fd = host->life.error_fd;
        return start_child(host, launch, deadline);
    }
    host->process.stderr_ring = open_stderr_ring(host->options.ring_bytes, &launch->error_fd, &error);
    if (!host->process.stderr_ring) return fail_system(host, error, "cannot collect the host's standard error");
    const int32_t result = start_child(host, launch, deadline);
    close_fd(&launch->error_fd);
    return result;
}

int32_t start_process(ka_host *host, int64_t deadline)
{
    t_LAUNCH launch = {host->module,           getpid(),
                       &host->pipes,           -1,
                       host->life.words,       host->life.word_count,
                       host->life.environment, host->life.directory};
    const int32_t result = start_with_pipes(host, &launch, deadline);
    if (result != KA_DONE) send_refusal(host);
    close_pipes(host);
    return result;
}
