/* SPDX-License-Identifier: MIT
 *
 * Starts a host again that has ended: whether, and when. */
#ifndef KA_CALLER_RESTART_H
#define KA_CALLER_RESTART_H

#include "host/host.h"

int32_t start_again(ka_host *host, int64_t deadline);          /* after the pause that is due */
int32_t start_with_more_room(ka_host *host, int64_t deadline); /* in the place of a process that was not called */
void restart_at_once(ka_host *host);                           /* when policy and pause allow it; the error stays */

#endif
