/* SPDX-License-Identifier: MIT
 *
 * The options of a host, checked and kept. */
#ifndef KA_CALLER_OPTIONS_H
#define KA_CALLER_OPTIONS_H

#include "host.h"

int32_t take_options(ka_host *host, const ka_options *options);
int32_t check_trace_level(ka_host *host, int32_t level);

#endif
