/* SPDX-License-Identifier: MIT
 *
 * One turn of the talk with the host: a request, or the answer to a call-back, is sent as SIGUSR2, and what comes of
 * it is told, with the value that came with it: a call-back, the end of the call, the host's death, a passed
 * deadline. Between the two the thread can go away from the wait (doorbell.h). */
#ifndef KA_CALLER_REPLY_H
#define KA_CALLER_REPLY_H

#include <stdint.h>

struct ka_host;

enum t_EVENT {
    EVENT_NONE, /* yet: the step is over */
    EVENT_CALLBACK,
    EVENT_RETURNED,
    EVENT_DIED,
    EVENT_CANCELLED,
    EVENT_LATE,
    EVENT_UNKNOWABLE,
    EVENT_UNWAITED /* the system refuses the wait */
};

struct t_REPLY {
    t_EVENT event;
    int32_t value; /* of the call-back, the return code, or an errno */
};

/* Sends one request, or one answer to a call-back. retcode_before, the answer or a random word, is in retcode until
   the host writes there; argc makes it a call, or with 0 a request that is refused. 0 or an errno: then nothing is
   awaited. */
int send_request(ka_host *host, int32_t retcode_before, int32_t argc);

/* What comes of it, until that time. Unless that is EVENT_NONE, the wait has ended. */
t_REPLY await_reply(ka_host *host, int64_t until);

/* Puts the values into the block by whose change a reply is known. */
void prepare_reply(ka_host *host, int32_t retcode_before);

/* The pause between two looks at a host that follows this one; the first follows 0. */
int64_t next_pause(int64_t pause);

#endif
