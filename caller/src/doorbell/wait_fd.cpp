/* SPDX-License-Identifier: MIT
 *
 * See wait_fd.h. */
#include "wait_fd.h"

#include <errno.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include "base/clock.h"
#include "base/fd.h"
#include "base/random.h"
#include "base/thread.h"
#include "bell.h"
#include "block/annex.h"
#include "doorbell.h"
#include "handler.h"
#include "host/cancel.h"
#include "host/owned.h"
#include "host/owner.h"
#include "waiters.h"

/* A signal can be lost: the program has replaced the handler, or ignores it. Where that is known, or where a reply
   without a number may need a second look, the descriptor is readable so often; else at first after a second, and
   then ever more seldom. */
enum : int64_t { UNSAFE_PAUSE_NS = 50 * NS_PER_MS, FIRST_SAFE_PAUSE_NS = NS_PER_S, LONGEST_PAUSE_NS = 64 * NS_PER_S };

/* 0: never. Set like this a timer that has expired is not readable any more. Its interval is only a mark. */
static void set_timer(ka_host *host, int64_t at)
{
    if (at == 0 && !host->wait_fd.is_timed) return;
    host->wait_fd.is_timed = at != 0;
    const struct itimerspec when = {{host->wait_fd.mark, 0},
                                    {static_cast<time_t>(at / NS_PER_S), static_cast<long>(at % NS_PER_S)}};
    timerfd_settime(host->wait_fd.timer_fd, TFD_TIMER_ABSTIME, &when, nullptr);
}

static void add_source(const ka_host *host, int fd)
{
    struct epoll_event event = wait_event(host, EPOLLIN);
    if (fd != -1) epoll_ctl(host->wait_fd.fd, EPOLL_CTL_ADD, fd, &event);
}

static void remove_source(const ka_host *host, int fd)
{
    struct epoll_event ignored = {};
    if (fd != -1) epoll_ctl(host->wait_fd.fd, EPOLL_CTL_DEL, fd, &ignored);
}

/* ---- While a call waits ---------------------------------------------------------------------------------------- */

static bool is_safe_from_loss(const ka_host *host)
{
    return host->waiting.is_numbered && (host->options.waiting == KA_WAIT_FAST || handler_is_installed());
}

/* A reply that is known to be there, but not yet which, is looked at again soon. */
static int64_t next_look(ka_host *host)
{
    const t_STEPS *steps = &host->steps;
    if (steps->phase == PHASE_IDLE || steps->signalled) return steps->look_at;
    if (!is_safe_from_loss(host)) return now_ns() + UNSAFE_PAUSE_NS;
    int64_t *pause = &host->wait_fd.pause;
    if (*pause < LONGEST_PAUSE_NS) *pause = *pause == 0 ? int64_t{FIRST_SAFE_PAUSE_NS} : 2 * *pause;
    return now_ns() + *pause;
}

/* What was noted while the bell was made still was perhaps overwritten by that. */
void arm_wait_fd(ka_host *host)
{
    if (host->wait_fd.fd == -1) return;
    if (!host->wait_fd.is_armed) {
        host->wait_fd.pause = 0;
        add_source(host, host->process.pid_fd);
        add_source(host, host->options.cancel_fd);
        add_source(host, host->waiting.doorbell_fd);
        host->wait_fd.is_armed = true;
    }
    still_bell(host);
    if (is_cancelled(host) || (host->waiting.is_away && (is_noted(host->waiting.waiter) || has_replied(host)))) {
        ring_wait_fd(host); /* and nothing else is needed */
        return;
    }
    const int64_t look = next_look(host);
    set_timer(host, look < host->steps.deadline ? look : host->steps.deadline);
}

void disarm_wait_fd(ka_host *host)
{
    still_bell(host);
    if (!host->wait_fd.is_armed) return;
    host->wait_fd.is_armed = false;
    remove_source(host, host->process.pid_fd);
    remove_source(host, host->options.cancel_fd);
    remove_source(host, host->waiting.doorbell_fd);
    set_timer(host, 0);
}

/* ---- The descriptor -------------------------------------------------------------------------------------------- */

void close_wait_fd(ka_host *host)
{
    close_fd(&host->wait_fd.bell_fd);
    close_fd(&host->wait_fd.timer_fd);
    close_fd(&host->wait_fd.fd);
}

/* The epoll descriptor is known by what is in it, so it is opened last: a program that closes all from a number on
   does not leave it empty. */
static int32_t open_wait_fd(ka_host *host)
{
    host->wait_fd.mark = (random_word(&host->random) & INT32_MAX) | 1;
    host->wait_fd.timer_fd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    host->wait_fd.bell_fd = eventfd(static_cast<unsigned>(host->wait_fd.mark), EFD_CLOEXEC | EFD_NONBLOCK);
    host->wait_fd.fd = epoll_create1(EPOLL_CLOEXEC);
    host->wait_fd.is_armed = host->wait_fd.is_ringing = false;
    host->wait_fd.is_timed = true; /* as far as is known */
    struct epoll_event event = wait_event(host, EPOLLIN);
    struct epoll_event still = wait_event(host, 0);
    if (host->wait_fd.fd != -1 && host->wait_fd.timer_fd != -1 && host->wait_fd.bell_fd != -1 &&
        epoll_ctl(host->wait_fd.fd, EPOLL_CTL_ADD, host->wait_fd.timer_fd, &event) == 0 &&
        epoll_ctl(host->wait_fd.fd, EPOLL_CTL_ADD, host->wait_fd.bell_fd, &still) == 0) {
        set_timer(host, 0);
        note_owned(host, OWNED_WAIT);
        note_owned(host, OWNED_TIMER);
        note_owned(host, OWNED_BELL);
        return KA_DONE;
    }
    const int error = errno;
    close_wait_fd(host);
    return fail_system(host, error, "cannot create a descriptor to wait for");
}

/* One of which the program has closed a part is made anew. */
static bool is_whole(ka_host *host)
{
    return is_owned(host, OWNED_WAIT) && is_owned(host, OWNED_TIMER) && is_owned(host, OWNED_BELL);
}

/* Between two steps a handler may ring the bell: not while this thread is back. */
static int32_t renew_wait_fd(ka_host *host)
{
    come_back(host);
    disown_lost(host);
    close_wait_fd(host);
    const int32_t status = open_wait_fd(host);
    go_away(host);
    return status;
}

int ka_wait_fd(ka_host *host)
{
    HOLD_CANCELLATION;
    COME_IN(host, -1);
    if (is_whole(host)) return host->wait_fd.fd;
    if (renew_wait_fd(host) != KA_DONE) return -1;
    if (host->life.state == STATE_SENT) {
        if (host->steps.phase != PHASE_IDLE) ask_for_doorbell(host);
        if (host->process.pid_fd == -1)
            ring_wait_fd(host); /* the next step finds the process again */
        else
            arm_wait_fd(host);
    }
    return host->wait_fd.fd;
}
