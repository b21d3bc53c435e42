/* SPDX-License-Identifier: MIT
 *
 * See clock.h. */
#include "clock.h"

int64_t now_ns(void)
{
    return wire::clock_ns();
}

int64_t deadline_after_ms(int32_t milliseconds)
{
    return now_ns() + milliseconds * NS_PER_MS;
}
