/* SPDX-License-Identifier: MIT
 *
 * The command under which a host runs. It becomes the host, or starts it as a child, or as a child's child: the host
 * is the process that attaches the segment. From then on the record's process is the host; the command is waited for,
 * and ended, after it. */
#ifndef KA_CALLER_RUNNER_H
#define KA_CALLER_RUNNER_H

#include "host/host.h"

/* After the start of the command: waits for the host. With the end of the command alone this fails. */
int32_t await_host(ka_host *host, int64_t deadline);

#endif
