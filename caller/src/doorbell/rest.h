/* SPDX-License-Identifier: MIT
 *
 * Is the host at rest, and in which of its two waits? Asked only when the block itself does not say. */
#ifndef KA_CALLER_REST_H
#define KA_CALLER_REST_H

#include "host/host.h"

enum t_REST { NOT_AT_REST, AT_REST_IDLE, AT_REST_IN_CALLBACK, REST_UNKNOWABLE };

/* One look; host->waiting.progress keeps what the looks before it have shown since the host was signalled. */
t_REST look_for_rest(ka_host *host);
t_REST look_for_first_rest(ka_host *host); /* before anything was sent */

/* After an answer. As before: with one look, and without a check of the descriptors; false may only mean that it
   could not be told so. Again: true where it cannot be known. */
bool is_idle_as_before(const ka_host *host);
bool is_idle_again(ka_host *host, bool thoroughly);
bool request_is_pending(ka_host *host); /* not taken yet; also of a zombie. False where that cannot be known */

#endif
