/* SPDX-License-Identifier: MIT
 *
 * See pidfd.h. */
#include "pidfd.h"

#include <errno.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

/* The descriptor comes with the birth, so that the number cannot be that of a later process. */
pid_t fork_with_pidfd(int *pid_fd)
{
    return static_cast<pid_t>(syscall(SYS_clone, CLONE_PIDFD | SIGCHLD, nullptr, pid_fd, nullptr, nullptr));
}

int signal_process(int pid_fd, int signal)
{
    return syscall(SYS_pidfd_send_signal, pid_fd, signal, nullptr, 0) == 0 ? 0 : errno;
}

int look_at_child(int pid_fd, pid_t pid, siginfo_t *info, int flags)
{
    *info = {};
    if (waitid(P_PIDFD, static_cast<id_t>(pid_fd), info, WEXITED | WNOHANG | flags) == 0) return 0;
    if (errno == ECHILD) return ECHILD;
    return waitid(P_PID, static_cast<id_t>(pid), info, WEXITED | WNOHANG | flags) == 0 ? 0 : errno;
}

bool is_living_child(pid_t pid)
{
    siginfo_t info = {};
    return pid != 0 && waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == 0;
}

int reopen_child(pid_t pid)
{
    siginfo_t info;
    if (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0) return -1;
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}
