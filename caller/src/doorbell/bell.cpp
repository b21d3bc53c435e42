/* SPDX-License-Identifier: MIT
 *
 * See bell.h. */
#include "bell.h"

#include <errno.h>

static void watch_bell(const ka_host *host, uint32_t events)
{
    struct epoll_event event = wait_event(host, events);
    epoll_ctl(host->wait_fd.fd, EPOLL_CTL_MOD, host->wait_fd.bell_fd, &event);
}

void ring_wait_fd(const ka_host *host)
{
    const int error = errno;
    __atomic_store_n(&host->wait_fd.is_ringing, true, __ATOMIC_SEQ_CST);
    if (host->wait_fd.bell_fd != -1) watch_bell(host, EPOLLIN);
    errno = error;
}

void still_bell(ka_host *host)
{
    if (!__atomic_load_n(&host->wait_fd.is_ringing, __ATOMIC_SEQ_CST)) return;
    __atomic_store_n(&host->wait_fd.is_ringing, false, __ATOMIC_SEQ_CST);
    watch_bell(host, 0);
}
