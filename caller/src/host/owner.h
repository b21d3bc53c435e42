/* SPDX-License-Identifier: MIT
 *
 * A host serves one thread at a time. Whoever comes in while another thread is inside is refused, without a look at
 * anything that the other one uses; ka_last_error tells that from a record of the thread that was refused. A
 * call-back runs in the thread inside, which may come in once more.
 *
 * A host can be retired beside a thread that is inside: then that thread removes it as it comes out. The record of a
 * host that was closed or retired is kept for a while, so that those who have not heard of it are refused, too. Then
 * it is that of another host; it is never freed: a thread that was held up while it came out may still look at it. */
#ifndef KA_CALLER_OWNER_H
#define KA_CALLER_OWNER_H

#include "host.h"

/* The host that has refused this thread last; its address names the thread. In the initial TLS block: the look at it
   is a part of every function. */
__attribute__((tls_model("initial-exec"))) extern constinit thread_local const ka_host *refused_by;

/* In place of an owner: the host is closed. */
inline constexpr uintptr_t NOBODY_EVER = 1;

inline uintptr_t this_thread(void)
{
    return reinterpret_cast<uintptr_t>(&refused_by);
}

/* One function of the interface at work on the host. */
struct t_VISIT {
    ka_host *host;   /* null when it is refused, or inside already: then nothing is to be done at its end */
    int32_t refusal; /* KA_DONE, or why the function does nothing: KA_ARGUMENT, KA_CLOSED */
};

int32_t come_in_again(ka_host *host, const char *function); /* or be refused */
void remove_retired(ka_host *host);
const ka_error *error_of(const ka_host *host); /* for this thread; null without memory */

/* Takes the host for a moment, or for ever. */
inline bool take_host(ka_host *host, uintptr_t owner)
{
    uintptr_t nobody = 0;
    return host->owner.compare_exchange(nobody, owner, ACQUIRE, RELAXED);
}

inline t_VISIT come_in(const ka_host *known, const char *function)
{
    ka_host *host = const_cast<ka_host *>(known);
    if (host->owner.load(RELAXED) != 0 || !take_host(host, this_thread()))
        return {nullptr, come_in_again(host, function)};
    if (refused_by == host) refused_by = nullptr;
    return {host, KA_DONE};
}

/* The look at retired must follow the store: from there on the record may be another host's. The processor need not
 * keep to that: ka_retire makes it do so. */
inline void come_out(const t_VISIT *visit)
{
    if (!visit->host) return;
    visit->host->owner.store(0, RELEASE);
    __atomic_signal_fence(__ATOMIC_SEQ_CST);
    if (visit->host->retired.load(RELAXED)) remove_retired(visit->host);
}

/* First in every function of the interface that takes a host, behind HOLD_CANCELLATION. */
#define COME_IN(host, result_of_refusal)                                                \
    __attribute__((cleanup(come_out))) const t_VISIT visit = come_in((host), __func__); \
    if (__builtin_expect(visit.refusal != KA_DONE, 0)) return (result_of_refusal)

/* All zero, and nobody's; null without memory. */
ka_host *new_record(void);

/* A record comes into use: now it can be taken. */
inline void show_record(ka_host *host)
{
    host->owner.store(0, RELEASE);
}

/* The last of a host: it is out of use, and its record becomes that of another when many have followed. */
void bury(ka_host *host);

#endif
