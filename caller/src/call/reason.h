/* SPDX-License-Identifier: MIT
 *
 * Why a function ended with its code, or what it said before its process ended: the text of its own line on standard
 * error, of this call alone. */
#ifndef KA_CALLER_REASON_H
#define KA_CALLER_REASON_H

#include "host/host.h"

/* From here on the lines are this call's. */
void begin_reason(ka_host *host);

/* After the call; status is its error class, and code the return code where that is KA_DONE. */
void find_reason(ka_host *host, int32_t status, int32_t code);

#endif
