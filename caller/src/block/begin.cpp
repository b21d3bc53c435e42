/* SPDX-License-Identifier: MIT
 *
 * Begins a call. */
#include <string.h>

#include "base/name.h"
#include "host/host.h"
#include "host/owner.h"
#include "segment.h"

int32_t ka_begin(ka_host *host, const char *function)
{
    COME_IN(host, visit.refusal);
    if (take_turn(host, TURN_BEGIN) != KA_DONE) return host->error.error_class;
    clear_error(host);
    host->building = no_building;
    host->reason[0] = '\0';
    host->building.cursor = VALUES_START;
    host->life.state = STATE_BUILDING;
    if (strcmp(host->function, function) != 0) show_name(host->function, function); /* what is shown shows itself */
    write_header(host);
    return ka_add_string(host, function, static_cast<int32_t>(strlen(function)), 0, KA_BY_VALUE);
}
