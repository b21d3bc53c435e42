/* SPDX-License-Identifier: MIT
 *
 * The clock of deadlines and pauses: it never goes back, and cannot be set. */
#ifndef KA_CALLER_CLOCK_H
#define KA_CALLER_CLOCK_H

#include <stdint.h>

enum : int64_t { NS_PER_MS = 1000000, NS_PER_S = 1000000000 };

int64_t now_ns(void);
int64_t deadline_after_ms(int32_t milliseconds);

#endif
