/* SPDX-License-Identifier: MIT
 *
 * The files of a process in /proc. That may be the /proc of another pid namespace, where the process has another
 * number than here; what the kernel says about a descriptor of the process has the number that holds there. */
#ifndef KA_CALLER_PROC_H
#define KA_CALLER_PROC_H

#include <stdint.h>
#include <sys/types.h>

/* The number of the process in /proc; 0, and an errno, when it is not to be seen there. */
pid_t number_in_proc(int pid_fd);

/* Opened as the flags say; a descriptor, or -1 and an errno. */
int open_proc_file(pid_t number, const char *name, int flags);

/* Whether it has attached the segment, and may write to it: who only looks may not. */
bool has_attached(pid_t number, int32_t segment_id);

/* /proc/PID/status: the main thread, and the dispositions of the process as a whole. */
struct t_STATUS {
    bool asleep;
    uint64_t pending; /* signals as bits: those of the thread and of the process */
    uint64_t blocked;
    uint64_t ignored;
    uint64_t caught; /* they have a handler */
};

constexpr uint64_t signal_bit(int signal)
{
    return uint64_t{1} << (signal - 1);
}

/* False when the process is gone, or its status cannot be read. */
bool read_status(int status_fd, t_STATUS *status);

#endif
