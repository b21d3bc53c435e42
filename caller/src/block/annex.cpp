/* SPDX-License-Identifier: MIT
 *
 * See annex.h. */
#include "annex.h"

#include <linux/futex.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "host/host.h"

void wipe_annex(ka_host *host)
{
    t_ANNEX *annex = host->segment.annex;
    memset(annex, 0, sizeof *annex);
    host->waiting.request = 0;
    host->waiting.spin = wire::new_spin;
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

/* Written only where another value is there: a host that spins has the words at hand. */
static void put(uint32_t *word, uint32_t value)
{
    if (__atomic_load_n(word, __ATOMIC_RELAXED) != value) __atomic_store_n(word, value, __ATOMIC_RELAXED);
}

void number_request(ka_host *host, t_WAY way)
{
    t_ANNEX *annex = host->segment.annex;
    put(&annex->answers, host->building.in_callback);
    put(&annex->wants_signal, way == WITH_SIGNALS);
    put(&annex->without_signal, way == WITHOUT_SIGNALS);
    if (way == WITHOUT_SIGNALS) {
        put(&annex->spin_us, static_cast<uint32_t>(host->options.spin_us));
        put(&annex->caller_cpu, wire::cpu_number());
    }
    const uint32_t number = host->waiting.request + 1;
    __atomic_store_n(&host->waiting.request, number, __ATOMIC_RELAXED); /* handlers read it */
    __atomic_store_n(&annex->request, number, __ATOMIC_SEQ_CST);
}

/* What the host cannot have said counts as a wait for a signal. */
bool wake_host(ka_host *host)
{
    t_ANNEX *annex = host->segment.annex;
    uint32_t waits = wire::HOST_IN_SIGSUSPEND;
    if (__atomic_compare_exchange_n(&annex->waits, &waits, uint32_t{wire::HOST_SIGNALLED}, false, __ATOMIC_SEQ_CST,
                                    __ATOMIC_SEQ_CST))
        return false;
    if (waits == wire::HOST_SLEEPS_ON_REQUEST)
        syscall(SYS_futex, &annex->request, FUTEX_WAKE, 1, nullptr, nullptr, 0);
    return waits == wire::HOST_SLEEPS_ON_REQUEST || waits == wire::HOST_AWAKE;
}

t_NUMBERED numbered_reply(const ka_host *host)
{
    const uint32_t reply = __atomic_load_n(&host->segment.annex->reply, __ATOMIC_SEQ_CST);
    const uint32_t request = __atomic_load_n(&host->waiting.request, __ATOMIC_RELAXED);
    if (reply == wire::reply_to(request, true)) return REPLY_CALLS_BACK;
    return reply == wire::reply_to(request, false) ? REPLY_RETURNS : NOT_REPLIED;
}

bool has_replied(const ka_host *host)
{
    return host->waiting.is_numbered && numbered_reply(host) != NOT_REPLIED;
}

/* The host looks at the word after it has written its reply. */
void ask_for_signal(ka_host *host)
{
    __atomic_store_n(&host->segment.annex->wants_signal, 1u, __ATOMIC_SEQ_CST);
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
