/* SPDX-License-Identifier: MIT
 *
 * The bell in the descriptor of ka_wait_fd (wait_fd.h). */
#ifndef KA_CALLER_BELL_H
#define KA_CALLER_BELL_H

#include <sys/epoll.h>

#include "host/host.h"

/* What the descriptor has of each file in it; it carries the host's mark. */
inline struct epoll_event wait_event(const ka_host *host, uint32_t events)
{
    struct epoll_event event = {};
    event.events = events;
    event.data.u64 = static_cast<uint64_t>(host->wait_fd.mark);
    return event;
}

/* The descriptor becomes readable. Async-signal-safe; nothing where there is none. */
void ring_wait_fd(const ka_host *host);

void still_bell(ka_host *host);

#endif
