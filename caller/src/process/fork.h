/* SPDX-License-Identifier: MIT
 *
 * The child of a fork finds its parent's hosts as records of hosts that have ended, which it may close. The child
 * closes the pipes of starts in progress: the parent would wait for as long as the child held one. */
#ifndef KA_CALLER_FORK_H
#define KA_CALLER_FORK_H

struct ka_host;

/* Between ka_open and ka_close the host is one of this process. 0 or an errno. */
int enter_host(ka_host *host);
void leave_host(ka_host *host);

/* The host's pipes; all of them are -1 while no start is under way. */
int open_pipes(ka_host *host);
void close_pipes(ka_host *host);
void close_pipe_end(int *fd);

#endif
