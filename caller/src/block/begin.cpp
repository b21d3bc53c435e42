/* SPDX-License-Identifier: MIT
 *
 * Begins a call. */
#include <string.h>

#include "base/name.h"
#include "host/host.h"
#include "segment.h"

int32_t ka_begin(ka_host *host, const char *function)
{
    if (host->state == STATE_ENDED && !can_restart(host))
        return fail(host, KA_CLOSED, "%.300s: the host has ended", host->module);
    if (host->state == STATE_CALLING) return fail(host, KA_ARGUMENT, "ka_begin inside a call-back of the same host");
    clear_error(host);
    host->build_error = KA_DONE;
    host->sent = host->in_callback = false;
    host->overwritten = 0;
    host->argc = 0;
    host->argc_is_given = false;
    host->cursor = VALUES_START;
    host->state = STATE_BUILDING;
    show_name(host->function, function);
    write_header(host);
    return ka_add_string(host, function, static_cast<int32_t>(strlen(function)), 0, KA_BY_VALUE);
}
