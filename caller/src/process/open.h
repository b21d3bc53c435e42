/* SPDX-License-Identifier: MIT
 *
 * A host is opened: its process is started. */
#ifndef KA_CALLER_OPEN_H
#define KA_CALLER_OPEN_H

#include "host/host.h"

/* With the segment that is there, or a new one. */
int32_t start_host(ka_host *host, int64_t deadline);

/* The same when the program asks for it: without a pause, and the host is ready for a call. */
int32_t open_process(ka_host *host);

#endif
