/* SPDX-License-Identifier: MIT
 *
 * See annex.h. */
#include "annex.h"

#include <string.h>

#include "host/host.h"

void wipe_annex(ka_host *host)
{
    t_ANNEX *annex = host->segment.annex;
    memset(annex, 0, sizeof *annex);
    host->waiting.request = 0;
    if (host->options.transport == KA_TRANSPORT_PLAIN) return;
    annex->caller = host->life.caller;
    memcpy(annex->magic, wire::ANNEX_MAGIC, sizeof annex->magic);
}

bool host_uses_annex(const ka_host *host)
{
    const t_ANNEX *annex = host->segment.annex;
    if (annex == nullptr || host->process.pid == 0) return false;
    const uint32_t life = __atomic_load_n(&annex->life, __ATOMIC_SEQ_CST) & ~wire::LIFE_WAITED_FOR;
    return __atomic_load_n(&annex->host, __ATOMIC_SEQ_CST) == host->process.pid &&
           life == static_cast<uint32_t>(host->process.pid);
}

void number_request(ka_host *host, bool wants_signal)
{
    t_ANNEX *annex = host->segment.annex;
    __atomic_store_n(&annex->wants_signal, wants_signal, __ATOMIC_RELAXED);
    __atomic_store_n(&annex->request, ++host->waiting.request, __ATOMIC_SEQ_CST);
}

static uint32_t load_reply(const ka_host *host)
{
    return __atomic_load_n(&host->segment.annex->reply, __ATOMIC_SEQ_CST);
}

bool has_called_back(const ka_host *host)
{
    return load_reply(host) == wire::reply_to(host->waiting.request, true);
}

bool has_replied(const ka_host *host)
{
    return load_reply(host) == wire::reply_to(host->waiting.request, false) || has_called_back(host);
}

/* The host counts a call as begun before it reads argc: either it is seen here, or it finds no argc. */
bool rests_by_annex(const ka_host *host)
{
    const t_ANNEX *annex = host->segment.annex;
    if (!host_uses_annex(host)) return false;
    __atomic_thread_fence(__ATOMIC_SEQ_CST);
    const uint32_t done = __atomic_load_n(&annex->done, __ATOMIC_SEQ_CST);
    return __atomic_load_n(&annex->started, __ATOMIC_SEQ_CST) == done;
}
