/* SPDX-License-Identifier: MIT
 *
 * The end of a host's record, as ka_close and ka_retire have it. */
#ifndef KA_CALLER_CLOSE_H
#define KA_CALLER_CLOSE_H

struct ka_host;

/* By the thread that owns the host. A process that cannot be ended is left. */
void remove_host(ka_host *host);

#endif
