/* SPDX-License-Identifier: MIT
 *
 * Starts a host again that has ended: whether, and when. */
#ifndef KA_CALLER_RESTART_H
#define KA_CALLER_RESTART_H

#include "host/host.h"

int32_t start_again(ka_host *host, int64_t deadline);          /* after the pause that is due */
int32_t start_with_more_room(ka_host *host, int64_t deadline); /* in the place of a process that was not called */

/* After a call that has failed so, when policy and pause allow it. Its error stays, unless a ka_cancel meets the
   start: then it is that. */
int32_t restart_at_once(ka_host *host, int32_t error_class);

#endif
