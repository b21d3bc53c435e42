/* SPDX-License-Identifier: MIT
 *
 * The host's own rules, applied to a call before it is sent. */
#ifndef KA_CALLER_CHECK_H
#define KA_CALLER_CHECK_H

#include "host/host.h"

/* KA_DONE, or KA_REFUSED for a call that the host would refuse by its tables. */
int32_t check_call(ka_host *host);

#endif
