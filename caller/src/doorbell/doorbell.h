/* SPDX-License-Identifier: MIT
 *
 * SIGUSR2 from an open host, as the caller hears it, in the way of waiting that its options name. The caller's own
 * signals to the host are sent in call/reply.cpp. */
#ifndef KA_CALLER_DOORBELL_H
#define KA_CALLER_DOORBELL_H

#include <stdint.h>
#include <sys/types.h>

struct ka_host;

/* From before the host is started until after it is dead. close_doorbell may be called for any host. */
int32_t open_doorbell(ka_host *host);
void close_doorbell(ka_host *host);

/* Before a request or an answer to which the reply is a signal: makes sure that the library gets it. 0 or an errno.
 */
int hear_reply(const ka_host *host);

/* From before a request or an answer is sent until the reply was seen, this thread is the one that waits for it. */
void begin_wait(ka_host *host);
void end_wait(ka_host *host);

/* Between two steps of a call no thread waits; the one that takes the next step need not be the one that went away.
 */
void go_away(ka_host *host);
void come_back(ka_host *host);

/* For a moment only the reply is waited for, and no descriptor is needed. False when no signal has come; errno is
   EINTR when a signal handler of the program has ended the wait. */
bool await_doorbell(const ka_host *host, int64_t until);

/* Before any other wait. False when a signal has come before: that is to be looked after first. */
bool block_doorbell(ka_host *host);
pid_t waiting_thread(const ka_host *host); /* the caller as the block has it */

/* In place of close_doorbell for a host that lives on: its signals must not end the program. */
void leave_doorbell(ka_host *host);

/* The request that is under way is to be answered with a signal after all. */
void ask_for_doorbell(ka_host *host);

/* KA_WAIT_FAST: takes a signal that is pending. 0; EAGAIN when there is none; or another errno. */
int drain_doorbell(const ka_host *host);

/* KA_WAIT_FAST: after its descriptor was lost. */
void reopen_doorbell(ka_host *host);
bool regain_doorbell(ka_host *host); /* where a reply is long in coming; true where it was lost */

/* For fork.cpp. */
void hold_doorbells(void);
void release_doorbells(void);
void begin_doorbells_anew(void); /* in the child, while they are held */

#endif
