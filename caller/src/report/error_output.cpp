/* SPDX-License-Identifier: MIT
 *
 * The end of what a host has written on its standard error, while it lives and after it. */
#include <string.h>

#include "base/thread.h"
#include "host/host.h"
#include "process/stderr_ring.h"

int32_t ka_error_output(ka_host *host, char *buffer, int32_t size)
{
    HOLD_CANCELLATION;
    const t_REMAINS *remains = &host->remains;
    if (size <= 0) return 0;
    if (host->ring && !remains->of_error) return read_ring(host->ring, buffer, size);
    if (!remains->output) return 0;
    const int32_t count = size < remains->output_length ? size : remains->output_length;
    memcpy(buffer, remains->output + remains->output_length - count, static_cast<size_t>(count));
    return count;
}
