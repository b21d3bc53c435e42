/* SPDX-License-Identifier: MIT
 *
 * See cancel.h. */
#include "cancel.h"

#include "base/thread.h"

static bool change(ka_host *host, int32_t from, int32_t to)
{
    return __atomic_compare_exchange_n(&host->cancel.state, &from, to, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
}

/* A ka_retire that came too early for its ka_cancel has left its mark before. */
bool open_to_cancel(ka_host *host)
{
    const bool opened = change(host, CANCEL_NOTHING, CANCEL_POSSIBLE);
    if (host->retired) change(host, CANCEL_POSSIBLE, CANCEL_ASKED);
    return opened;
}

bool close_to_cancel(ka_host *host)
{
    if (change(host, CANCEL_POSSIBLE, CANCEL_NOTHING) || cancel_state(host) == CANCEL_NOTHING) return true;
    await_canceller(host);
    __atomic_store_n(&host->cancel.state, CANCEL_NOTHING, __ATOMIC_SEQ_CST);
    return false;
}

void await_canceller(ka_host *host)
{
    for (int attempts = 0; cancel_state(host) == CANCEL_WAKES; attempts++)
        let_another_finish(attempts);
}
