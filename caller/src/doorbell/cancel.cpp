/* SPDX-License-Identifier: MIT
 *
 * ka_cancel. host/cancel.h says how it meets one call and no other; here is who is woken. Nobody is where nobody
 * waits: the next step finds the word. */
#include "host/cancel.h"

#include <errno.h>

#include "host/host.h"
#include "wait.h"
#include "waiters.h"

int32_t ka_cancel(ka_host *host)
{
    if (!host) return 0;
    int32_t state = CANCEL_POSSIBLE;
    if (!__atomic_compare_exchange_n(&host->cancel.state, &state, int32_t{CANCEL_WAKES}, false, __ATOMIC_SEQ_CST,
                                     __ATOMIC_SEQ_CST))
        return 0;
    const int error = errno;
    rouse_sleeper(host);
    t_WAITER *waiter = __atomic_load_n(&host->waiting.waiter, __ATOMIC_SEQ_CST);
    if (waiter) rouse_waiter(waiter);
    __atomic_store_n(&host->cancel.state, int32_t{CANCEL_ASKED}, __ATOMIC_SEQ_CST);
    errno = error;
    return 1;
}
