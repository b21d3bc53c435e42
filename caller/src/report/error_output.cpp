/* SPDX-License-Identifier: MIT
 *
 * The end of what a host has written on its standard error, while it lives and after it. */
#include <string.h>

#include "base/thread.h"
#include "host/host.h"
#include "host/owner.h"
#include "process/stderr_ring.h"

int32_t ka_error_output(ka_host *host, char *buffer, int32_t size)
{
    HOLD_CANCELLATION;
    COME_IN(host, 0);
    const t_LAST_END *last_end = &host->last_end;
    if (size <= 0) return 0;
    if (host->process.stderr_ring && !last_end->of_error)
        return read_stderr_ring(host->process.stderr_ring, buffer, size);
    if (!last_end->output) return 0;
    const int32_t count = size < last_end->output_length ? size : last_end->output_length;
    memcpy(buffer, last_end->output + last_end->output_length - count, static_cast<size_t>(count));
    return count;
}
