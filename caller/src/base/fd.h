/* SPDX-License-Identifier: MIT
 *
 * Open files, and the text of a system error. */
#ifndef KA_CALLER_FD_H
#define KA_CALLER_FD_H

void close_fd(int *fd); /* unless it is -1, which it becomes */
const char *errno_text(int error_number);

#endif
