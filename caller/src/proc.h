/* SPDX-License-Identifier: MIT
 *
 * The files of a process in /proc. That may be the /proc of another pid namespace, where the process has another
 * number than here; what the kernel tells about a descriptor of the process has the number that holds there. */
#ifndef KA_CALLER_PROC_H
#define KA_CALLER_PROC_H

#include <sys/types.h>

/* The number of the process in /proc; 0, and an errno, when it is not to be seen there. */
pid_t number_in_proc(int pid_fd);

/* A descriptor for reading, or -1 and an errno. */
int open_proc_file(pid_t number, const char *name);

#endif
