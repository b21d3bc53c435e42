/* SPDX-License-Identifier: MIT
 *
 * See clock.h. */
#include "clock.h"

#include <time.h>

int64_t now_ns(void)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * NS_PER_S + now.tv_nsec;
}

int64_t deadline_after_ms(int32_t milliseconds)
{
    return now_ns() + milliseconds * NS_PER_MS;
}
