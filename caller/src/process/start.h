/* SPDX-License-Identifier: MIT
 *
 * Starts the module's process. */
#ifndef KA_CALLER_START_H
#define KA_CALLER_START_H

#include "host/host.h"

/* Waits until the module is executed, but not beyond deadline. */
int32_t start_process(ka_host *host, int64_t deadline);

#endif
