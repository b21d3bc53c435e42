/* SPDX-License-Identifier: MIT
 *
 * Starts the module's process. There is no sign of readiness to wait for, and none is needed: the child is born with
 * SIGUSR2 blocked, so a call that is sent before the host waits for one stays pending until it does.
 *
 * The child is there before the segment, and guards it: the caller creates the segment, marks it for removal, and
 * then sends the child the word to go on. When the caller is killed before that, the child removes what was created;
 * when the child is killed, the caller goes on to mark the segment. */
#include "host.h"
#include "inspect.h"
#include "ring.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "attendant.h"
#include "base/fd.h"
#include "base/pidfd.h"
#include "forked.h"
#include "listener.h"

enum { ARGUMENT_SIZE = 32 }; /* segment identifier and layout, zero-terminated */

namespace {
struct t_LAUNCH {
    const char *module;
    pid_t parent;
    const t_PIPES *pipes;
    int error_fd; /* becomes its standard error, unless it is -1 */
};
} // namespace

/* ---- In the child, where only async-signal-safe functions may be called ---------------------------------------- */

/* A host is never in the foreground of the program's terminal. What it writes there must not stop it, whatever the
   terminal is set to; and reading there fails. It leaves ignored what it finds ignored. */
static void ignore_terminal(void)
{
    struct sigaction action = {};
    action.sa_handler = SIG_IGN;
    sigaction(SIGTTOU, &action, nullptr);
    sigaction(SIGTTIN, &action, nullptr);
}

/* All signals are blocked here: a handler of the parent must not run in the child. Ignored signals stay ignored, as
   for any child, but for the two that drive the host. */
static void reset_signals(void)
{
    for (int number = 1; number <= SIGRTMAX; number++) {
        struct sigaction action;
        if (sigaction(number, nullptr, &action) != 0) continue;
        const bool drives_host = number == SIGUSR2 || number == SIGTERM;
        if (action.sa_handler == SIG_DFL || (action.sa_handler == SIG_IGN && !drives_host)) continue;
        action = {};
        action.sa_handler = SIG_DFL;
        sigaction(number, &action, nullptr);
    }
    ignore_terminal();
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR2);
    sigprocmask(SIG_SETMASK, &set, nullptr);
}

static void await_any(struct pollfd *fds, nfds_t count)
{
    while (poll(fds, count, -1) == -1 && errno == EINTR)
        ;
}

/* Reads the host's argument, or ends with what the caller has left. The end of the pipe is no sign that the caller
   dies: children of other starts, born meanwhile, hold copies of it, and wait as this one does. So the caller is
   watched as well. And a caller that dies closes the pipe before it is dead; one that lives always sends a word, and
   looks after its segments itself. */
static void await_argument(const t_LAUNCH *launch, char argument[ARGUMENT_SIZE])
{
    const int parent_fd = static_cast<int>(syscall(SYS_pidfd_open, launch->parent, 0));
    struct pollfd fds[] = {{parent_fd, POLLIN, 0}, {launch->pipes->go[0], POLLIN, 0}};
    if (getppid() == launch->parent) {
        await_any(fds, 2);
        if (fds[1].revents & POLLIN) {
            if (read(launch->pipes->go[0], argument, ARGUMENT_SIZE) == ARGUMENT_SIZE) return;
            _exit(127);
        }
        if (parent_fd != -1) await_any(fds, 1);
    }
    remove_abandoned_segments(launch->parent);
    _exit(127);
}

__attribute__((noreturn)) static void become_host(const t_LAUNCH *launch)
{
    setpgid(0, 0); /* as the parent does: whoever comes first */
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    close(launch->pipes->go[1]);
    char argument[ARGUMENT_SIZE];
    await_argument(launch, argument);
    /* A parent that died before the first line sends no signal any more. */
    if (getppid() != launch->parent) _exit(127);
    reset_signals();
    if (launch->error_fd != -1) dup2(launch->error_fd, STDERR_FILENO);
    char *const arguments[] = {const_cast<char *>(launch->module), argument, nullptr};
    execve(launch->module, arguments, environ);
    const int error = errno;
    if (write(launch->pipes->report[1], &error, sizeof error) != sizeof error) _exit(126);
    _exit(127);
}

/* ---- In the caller --------------------------------------------------------------------------------------------- */

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
    host->pid = pid;
    host->pid_fd = pid_fd;
    if (host->listener) host->listener->process = pid;
    open_views(host);
    host->idle = {};
    return 0;
}

namespace {
struct t_BIRTH {
    ka_host *host;
    const t_LAUNCH *launch;
    int error;
};
} // namespace

static void attend_birth(void *argument)
{
    t_BIRTH *birth = static_cast<t_BIRTH *>(argument);
    birth->error = launch_process(birth->host, birth->launch);
}

/* The kernel ends the host with the thread that started it: that is the attendant, which stays, or this thread, to
   which a host that waits fast belongs. */
static int launch_from_lasting_thread(ka_host *host, const t_LAUNCH *launch, int64_t deadline)
{
    if (host->options.waiting == KA_WAIT_FAST) return launch_process(host, launch);
    t_BIRTH birth = {host, launch, 0};
    const int error = attendant_run(attend_birth, &birth, deadline);
    return error != 0 ? error : birth.error;
}

static int32_t fail_exec(ka_host *host, int error)
{
    char loader[128];
    const char *module = host->module;
    if (error == ENOENT && read_loader(module, loader, sizeof loader))
        fail(host, KA_START, "cannot start %.300s: its loader %s is missing (the 32-bit C library is not installed)",
             module, loader);
    else if (error == ENOEXEC)
        fail(host, KA_START, "cannot start %.300s: this system does not run 32-bit programs", module);
    else
        fail(host, KA_START, "cannot start %.300s: %s", module, errno_text(error));
    host->error.sys_errno = error;
    return KA_START;
}

/* The pipe ends without a word when the module runs, for exec has closed it. */
static int32_t await_exec(ka_host *host, int report_fd, int64_t deadline)
{
    int woken = 0;
    while ((woken & (WOKEN_BY_PIPE | WOKEN_BY_CANCEL)) == 0) {
        woken = wait_until(host, report_fd, deadline);
        if (woken & WOKEN_BY_ERROR) return fail_system(host, errno, "cannot wait for the host");
        if (woken == 0) {
            return fail(host, KA_DEADLINE, "%.300s did not start within %d ms", host->module,
                        host->options.deadline_ms);
        }
    }
    if (woken & WOKEN_BY_CANCEL) return fail(host, KA_CANCELLED, "the start of %.300s was cancelled", host->module);
    int error = 0;
    const ssize_t length = read(report_fd, &error, sizeof error);
    if (length == -1) return fail_system(host, errno, "cannot read from a pipe");
    return length == sizeof error ? fail_exec(host, error) : KA_DONE;
}

/* The child reads until the last writing end is closed, and must not find its reading end the only one when the
   caller writes: that would raise SIGPIPE. So this end stays open until the word is sent. */
static int32_t send_argument(ka_host *host)
{
    char argument[ARGUMENT_SIZE] = {};
    snprintf(argument, sizeof argument, host->options.layout == KA_LAYOUT_64 ? "%d:64" : "%d", host->segment_id);
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
    if (error != 0) return fail_system(host, error, "cannot create a process");
    if (!host->base && create_segment(host) != KA_DONE) return host->error.error_class;
    write_header(host);
    start_inspection(host);
    if (send_argument(host) != KA_DONE) return host->error.error_class;
    close_pipe_end(&host->pipes.report[1]); /* the child's is the last */
    return await_exec(host, host->pipes.report[0], deadline);
}

static int32_t start_with_pipes(ka_host *host, t_LAUNCH *launch, int64_t deadline)
{
    int error = open_pipes(host);
    if (error != 0) return fail_system(host, error, "cannot create a pipe");
    disown_lost(host); /* error_fd is kept from process to process */
    if (host->options.error_output == KA_STDERR_FILE && host->error_fd == -1)
        return fail_system(host, EBADF, "the program has closed the library's copy of error_fd");
    if (host->options.error_output != KA_STDERR_RING) {
        launch->error_fd = host->error_fd;
        return start_child(host, launch, deadline);
    }
    host->ring = open_ring(host->options.ring_bytes, &launch->error_fd, &error);
    if (!host->ring) return fail_system(host, error, "cannot collect the host's standard error");
    const int32_t result = start_child(host, launch, deadline);
    close_fd(&launch->error_fd);
    return result;
}

int32_t start_process(ka_host *host, int64_t deadline)
{
    t_LAUNCH launch = {host->module, getpid(), &host->pipes, -1};
    const int32_t result = start_with_pipes(host, &launch, deadline);
    if (result != KA_DONE) send_refusal(host);
    close_pipes(host);
    return result;
}
