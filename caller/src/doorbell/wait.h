/* SPDX-License-Identifier: MIT
 *
 * The one place where the library waits, but for the first moment of a wait for a signal (doorbell.h). Every wait has
 * an end, and sees the host's death and a cancellation at once. What a wait that ended means for a call, the
 * deadline's passing included, call/reply.cpp decides. */
#ifndef KA_CALLER_WAIT_H
#define KA_CALLER_WAIT_H

#include "host/host.h"

/* Waits for the first of these things; more than one bit can be set, none when the time is over. An error comes
   alone: the system refuses the wait, and errno says why. A handler of the program ends it only in a step that is
   interruptible. pipe_fd can be -1; until 0 only looks. */
enum {
    WOKEN_BY_SIGNAL = 1,
    WOKEN_BY_DEATH = 2,
    WOKEN_BY_CANCEL = 4,
    WOKEN_BY_PIPE = 8,
    WOKEN_BY_ERROR = 16,
    WOKEN_BY_HANDLER = 32
};
int wait_until(const ka_host *host, int pipe_fd, int64_t until);

/* Sleeps until the host has offered its annex, being ready, or until that time; a death is not seen. */
void sleep_until_offer(ka_host *host, int64_t until);

/* Looks for the reply to the last request without a pause: for a moment at most, and only where that pays. */
void spin_for_reply(ka_host *host);

/* Sleeps until the reply to the last request is in the annex, or until that time. It ends early when the call is
   cancelled, or by a handler as above. */
enum t_LIFE_TOLD {
    LIFE_NOT_TOLD, /* at once: the host dies, has executed another program, or the module has overwritten the word */
    LIFE_TOLD,
    LIFE_INTERRUPTED
};
t_LIFE_TOLD sleep_on_life(ka_host *host, int64_t until);

/* Wakes who sleeps there. Async-signal-safe. */
void rouse_sleeper(ka_host *host);

#endif
