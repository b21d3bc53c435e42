/* SPDX-License-Identifier: MIT
 *
 * The steps that are done once for each process that is started, and the checks of every call before it is sent. A
 * host that dies or is late in between is ended. */
#ifndef KA_CALLER_PREPARE_H
#define KA_CALLER_PREPARE_H

#include "host/host.h"

int32_t prepare_and_check_call(ka_host *host, int64_t deadline);

int32_t check_alive(ka_host *host);
int32_t await_ready(ka_host *host, int64_t deadline);
void load_tables(ka_host *host, char *why, size_t size); /* host->prepared.tables, or why not */
int32_t apply_trace_level(ka_host *host);

#endif
