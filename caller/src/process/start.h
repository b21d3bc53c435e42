/* SPDX-License-Identifier: MIT
 *
 * Starts the module's process. */
#ifndef KA_CALLER_START_H
#define KA_CALLER_START_H

#include "host/host.h"

/* Waits until the module is executed, but not beyond deadline, which ka_open (open.cpp) and the restart before a call
   (call/restart.cpp) set deadline_ms after they began. */
int32_t start_process(ka_host *host, int64_t deadline);

#endif
