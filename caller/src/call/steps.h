/* SPDX-License-Identifier: MIT
 *
 * A call in steps: it is sent; then each wait ends with a call-back, which is answered, or with the end of the call.
 * ka_call is the loop over them; ka_send, ka_wait and ka_answer leave it to the program. A step that fails ends the
 * call. */
#ifndef KA_CALLER_STEPS_H
#define KA_CALLER_STEPS_H

#include "host/host.h"

inline constexpr int64_t NEVER = INT64_MAX;

/* What a wait came to: an error class, or what ka_wait stores. */
struct t_STEP {
    int32_t status;
    int32_t what;
    int32_t value;
};

int32_t send_call(ka_host *host, t_STATE state); /* in which the host then is */
int32_t await_call(ka_host *host, int64_t until, int32_t *what, int32_t *value);
int32_t answer_call(ka_host *host, int32_t answer);

/* In place of an answer, of a call that was cancelled. */
int32_t abandon_call(ka_host *host);

#endif
