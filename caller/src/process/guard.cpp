/* SPDX-License-Identifier: MIT
 *
 * See guard.h. The guard is a copy of the program that never runs anything else, so it makes system calls only, and
 * has closed what it does not need. It is a member of the command's group: as long as it lives, the group's number is
 * that of no other. */
#include "guard.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/fd.h"
#include "base/pidfd.h"
#include "base/thread.h"

namespace {
struct t_GUARDED {
    pid_t parent;
    pid_t thread; /* of the parent, to which the host belongs; 0 where it belongs to the process */
    pid_t group;
    int fds[2]; /* of the host and of its command; -1 for none */
    int64_t grace_ns;
};
} // namespace

static void await(int fd, int64_t until)
{
    struct pollfd end = {fd, POLLIN, 0};
    const int64_t left = until - now_ns();
    const struct timespec time = {static_cast<time_t>(left / NS_PER_S), static_cast<long>(left % NS_PER_S)};
    if (left > 0) ppoll(&end, 1, &time, nullptr); /* every signal is blocked */
}

static void signal_all(const t_GUARDED *guarded, int signal)
{
    for (const int fd : guarded->fds)
        if (fd != -1) signal_process(fd, signal);
    if (getpgrp() == guarded->group) kill(-guarded->group, signal); /* not if the command had ended before */
}

/* The kernel tells the end of the thread that has started the guard. */
static void await_end_of_thread(const t_GUARDED *guarded)
{
    sigset_t set;
    siginfo_t info = {};
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    bool lives = syscall(SYS_tgkill, guarded->parent, guarded->thread, 0) == 0;
    while (lives)
        lives = sigwaitinfo(&set, &info) != SIGTERM || info.si_pid != guarded->parent;
}

static void await_end_of_parent(const t_GUARDED *guarded)
{
    const int parent_fd = static_cast<int>(syscall(SYS_pidfd_open, guarded->parent, 0));
    constexpr struct timespec step = {1, 0}; /* where there is no descriptor */
    struct pollfd end = {parent_fd, POLLIN, 0};
    while (getppid() == guarded->parent && ppoll(&end, 1, parent_fd == -1 ? &step : nullptr, nullptr) != 1)
        ;
}

/* SIGKILL for the group ends the guard, too. */
__attribute__((noreturn)) static void guard(const t_GUARDED *guarded)
{
    setpgid(0, guarded->group);
    close_all_but(guarded->fds[0], guarded->fds[1]);
    if (guarded->thread != 0)
        await_end_of_thread(guarded);
    else
        await_end_of_parent(guarded);
    signal_all(guarded, SIGTERM);
    signal_all(guarded, SIGCONT);
    const int64_t until = now_ns() + guarded->grace_ns;
    for (const int fd : guarded->fds)
        if (fd != -1) await(fd, until);
    await(-1, now_ns() + guarded->grace_ns); /* others of the group */
    signal_all(guarded, SIGKILL);
    _exit(0);
}

/* Of the group there is one process at least that is not taken: the command. */
int start_guard(ka_host *host)
{
    const pid_t command = host->process.command != 0 ? host->process.command : host->process.pid;
    const int command_fd = host->process.command != 0 ? reopen_child(command) : -1;
    const pid_t thread = host->options.waiting == KA_WAIT_FAST ? own_thread() : 0;
    const t_GUARDED guarded = {
        getpid(), thread, command, {host->process.pid_fd, command_fd}, host->options.grace_ms * NS_PER_MS};
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    int pid_fd = -1;
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const pid_t pid = fork_with_pidfd(&pid_fd);
    if (pid == 0) guard(&guarded);
    const int error = pid == -1 ? errno : 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (command_fd != -1) close(command_fd);
    if (error != 0) return error;
    close(pid_fd);
    setpgid(pid, command);
    end_guard(host); /* the one before, which knew the command alone */
    host->process.guard = pid;
    return 0;
}

bool guard_holds_group(const ka_host *host)
{
    return is_living_child(host->process.guard) && getpgid(host->process.guard) == host->process.command;
}

void end_guard(ka_host *host)
{
    siginfo_t info;
    const pid_t pid = host->process.guard;
    host->process.guard = 0;
    if (pid == 0 || look_at_child(-1, pid, &info, WNOWAIT) != 0) return;
    kill(pid, SIGKILL);
    while (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED) != 0 && errno == EINTR)
        ;
}
