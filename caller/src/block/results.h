/* SPDX-License-Identifier: MIT
 *
 * What a call gave back: where it lies comes from the library's own records. */
#ifndef KA_CALLER_RESULTS_H
#define KA_CALLER_RESULTS_H

#include "host/host.h"

/* Keeps of the block what decides about results. */
void take_results(ka_host *host);

/* Elements as the block holds them, made safe. A string is copied as far as it fits; its length. */
int32_t read_integer(const ka_host *host, const t_ARGUMENT *argument, int32_t index);
t_DECIMAL read_real(const ka_host *host, const t_ARGUMENT *argument, int32_t index);
int32_t read_string(const ka_host *host, const t_ARGUMENT *argument, int32_t index, char *buffer, int32_t size);

#endif
