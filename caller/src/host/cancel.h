/* SPDX-License-Identifier: MIT
 *
 * The word that decides which call or start a ka_cancel meets. It is open while one is under way; a ka_cancel that
 * finds it open has cancelled that one, and no other. Until it has woken who waits it keeps the word, and the end of
 * the call waits for it: so what it uses of the host does not change, and a late wake meets no other call. */
#ifndef KA_CALLER_CANCEL_H
#define KA_CALLER_CANCEL_H

#include "host.h"

enum t_CANCEL_STATE : int32_t {
    CANCEL_NOTHING, /* nothing is under way */
    CANCEL_POSSIBLE,
    CANCEL_WAKES, /* cancelled; ka_cancel is at work */
    CANCEL_ASKED  /* cancelled */
};

/* A call or a start begins. False when it is part of one that is under way. */
bool open_to_cancel(ka_host *host);

/* It ends. False when it was cancelled before. */
bool close_to_cancel(ka_host *host);

/* Until a ka_cancel that is at work has ended: then it uses nothing of the host any more. */
void await_canceller(ka_host *host);

inline int32_t cancel_state(const ka_host *host)
{
    return __atomic_load_n(&host->cancel.state, __ATOMIC_SEQ_CST);
}

/* An end is not cancelled. */
inline bool is_cancelled(const ka_host *host)
{
    return cancel_state(host) >= CANCEL_WAKES && !host->cancel.is_ending;
}

#endif
