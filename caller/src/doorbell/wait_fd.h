/* SPDX-License-Identifier: MIT
 *
 * The descriptor of ka_wait_fd. It is an epoll descriptor over the host's process, cancel_fd, with KA_WAIT_FAST the
 * doorbell, a timer for the deadline, and a bell, which a handler of SIGUSR2 and ka_cancel ring: a descriptor that is
 * always readable, and watched from then on. That is quicker than a timer that is over, and a number that the program
 * has given to another file does no harm. While no call in steps waits for the host only the timer and the bell are
 * left in it, and are still: so nothing is told that nobody can take. */
#ifndef KA_CALLER_WAIT_FD_H
#define KA_CALLER_WAIT_FD_H

#include "host/host.h"

/* From the end of a step that leaves a call waiting to the begin of the next; again after each. */
void arm_wait_fd(ka_host *host);
void disarm_wait_fd(ka_host *host);

void close_wait_fd(ka_host *host);

#endif
