/* SPDX-License-Identifier: MIT
 *
 * Child processes by a descriptor, which never names another process that has got the number of a dead one; and by
 * their number, which the kernel gives to no other process before the child has been waited for. */
#ifndef KA_CALLER_PIDFD_H
#define KA_CALLER_PIDFD_H

#include <signal.h>
#include <sys/types.h>

/* As fork does, with a descriptor for the child. */
pid_t fork_with_pidfd(int *pid_fd);

int signal_process(int pid_fd, int signal); /* 0 or an errno */

/* 0 or an errno; info->si_pid is 0 unless it is a zombie. Without WNOWAIT in flags that is reaped. Where the
   descriptor is refused, the number is used: it names the same process until the child is reaped. */
int look_at_child(int pid_fd, pid_t pid, siginfo_t *info, int flags);

/* By its number: the program may have closed its descriptor. False also where it cannot be known. */
bool is_living_child(pid_t pid);

/* A new descriptor for a child; -1 when it is not a child of this program any more. */
int reopen_child(pid_t pid);

#endif
