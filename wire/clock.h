/* SPDX-License-Identifier: MIT
 *
 * The clock of deadlines and pauses: it never goes back, and cannot be set. */
#ifndef KA_WIRE_CLOCK_H
#define KA_WIRE_CLOCK_H

#include <stdint.h>
#include <time.h>

namespace wire {

enum : int64_t { NS_PER_US = 1000, NS_PER_MS = 1000000, NS_PER_S = 1000000000 };

inline int64_t clock_ns(void)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * NS_PER_S + now.tv_nsec;
}

} // namespace wire

#endif
