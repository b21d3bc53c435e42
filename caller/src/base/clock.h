/* SPDX-License-Identifier: MIT
 *
 * The clock of deadlines and pauses, for the library. */
#ifndef KA_CALLER_CLOCK_H
#define KA_CALLER_CLOCK_H

#include <stdint.h>

#include "wire/clock.h"

using wire::NS_PER_MS;
using wire::NS_PER_S;

int64_t now_ns(void);
int64_t deadline_after_ms(int32_t milliseconds);

#endif
