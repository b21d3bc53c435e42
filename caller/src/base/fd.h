/* SPDX-License-Identifier: MIT
 *
 * Open files, and the text of a system error. */
#ifndef KA_CALLER_FD_H
#define KA_CALLER_FD_H

void close_fd(int *fd); /* unless it is -1, which it becomes */

/* Closes every other descriptor of this process, or of a thread that has a table to itself; either may be -1. 0 or an
   errno. Async-signal-safe. */
int close_all_but(int first, int second);

const char *errno_text(int error_number);

#endif
