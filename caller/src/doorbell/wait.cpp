/* SPDX-License-Identifier: MIT
 *
 * See wait.h. */
#include "wait.h"

#include <errno.h>
#include <limits.h>
#include <linux/futex.h>
#include <poll.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "base/clock.h"
#include "block/annex.h"
#include "doorbell.h"
#include "host/cancel.h"

enum { INTERRUPTED = -2, CANCELLED = -3 };

/* A ka_cancel wakes only a thread that waits for a reply. In other waits it is looked for so often. */
enum : int64_t { CANCEL_LOOK_NS = 20 * NS_PER_MS };

static struct timespec time_of(int64_t ns)
{
    return {static_cast<time_t>(ns / NS_PER_S), static_cast<long>(ns % NS_PER_S)};
}

/* None when until is 0 or has passed. */
static struct timespec time_left(int64_t until)
{
    const int64_t left = until > 0 ? until - now_ns() : 0;
    return time_of(left > 0 ? left : 0);
}

static bool looks_for_cancel(const ka_host *host)
{
    return !host->waiting.is_waiting && cancel_state(host) != CANCEL_NOTHING && !host->cancel.is_ending;
}

/* A thread that waits the safe way opens SIGUSR2 for the wait alone, and whatever interrupts it is a hint to look.
   Else a signal handler of the program may interrupt the wait, which then goes on for the time that is left, unless
   the program takes the steps. */
static int poll_until(const ka_host *host, struct pollfd *fds, nfds_t count, int64_t until)
{
    const sigset_t *mask = host->waiting.is_blocked ? &host->waiting.mask_waiting : nullptr;
    const bool looks = looks_for_cancel(host);
    for (;;) {
        if (is_cancelled(host)) return CANCELLED;
        const int64_t look = looks && until > 0 ? now_ns() + CANCEL_LOOK_NS : until;
        const bool is_last = look >= until;
        const struct timespec timeout = time_left(is_last ? until : look);
        const int ready = ppoll(fds, count, &timeout, mask);
        if (ready > 0 || (ready == 0 && is_last) || (ready == -1 && errno != EINTR)) return ready;
        if (ready == -1 && (mask || host->steps.is_interruptible)) return INTERRUPTED;
    }
}

static int fail_waiting(int error)
{
    errno = error;
    return WOKEN_BY_ERROR;
}

/* Descriptors of -1 are passed over by the kernel. */
int wait_until(const ka_host *host, int pipe_fd, int64_t until)
{
    struct pollfd fds[] = {{host->waiting.doorbell_fd, POLLIN, 0},
                           {host->process.pid_fd, POLLIN, 0},
                           {host->options.cancel_fd, POLLIN, 0},
                           {pipe_fd, POLLIN, 0}};
    static constexpr int meaning[] = {WOKEN_BY_SIGNAL, WOKEN_BY_DEATH, WOKEN_BY_CANCEL, WOKEN_BY_PIPE};
    const int ready = poll_until(host, fds, 4, until);
    if (ready == CANCELLED) return WOKEN_BY_CANCEL;
    if (ready == INTERRUPTED)
        return (host->waiting.is_blocked ? WOKEN_BY_SIGNAL : 0) |
               (host->steps.is_interruptible ? WOKEN_BY_HANDLER : 0);
    if (ready == -1) return WOKEN_BY_ERROR;
    int woken = 0;
    for (int i = 0; i < 4; i++)
        if (fds[i].revents != 0) woken |= meaning[i];
    const int error = woken & WOKEN_BY_SIGNAL ? drain_doorbell(host) : 0;
    return error != 0 && error != EAGAIN ? fail_waiting(error) : woken;
}

/* 0 or an errno: EINTR when a signal handler has run. */
static int sleep_while(const void *word, uint32_t value, struct timespec timeout)
{
    return syscall(SYS_futex, word, FUTEX_WAIT, value, &timeout, nullptr, 0) == 0 ? 0 : errno;
}

void sleep_until_offer(ka_host *host, int64_t until)
{
    sleep_while(&host->segment.annex->host, 0, time_left(until));
}

void spin_for_reply(ka_host *host)
{
    t_SPIN *spin = &host->waiting.spin;
    const uint32_t us = static_cast<uint32_t>(host->options.spin_us);
    if (us == 0 || !wire::spinning_pays(spin, host->segment.annex->host_cpu)) return;
    wire::spin_until(spin, us, [host] { return numbered_reply(host) != NOT_REPLIED || is_cancelled(host); });
}

static bool goes_on(const ka_host *host)
{
    return numbered_reply(host) == NOT_REPLIED && !is_cancelled(host);
}

/* The host gives the word its plain value back when it replies, and the kernel marks it at the host's death; both
   wake who sleeps on it, as a ka_cancel does. So does this thread, unless the word was changed after the mark was put
   in. */
static t_LIFE_TOLD sleep_on(ka_host *host, uint32_t *life, int64_t until)
{
    const uint32_t waited_for = static_cast<uint32_t>(host->process.pid) | wire::LIFE_WAITED_FOR;
    while (goes_on(host)) {
        if (!host_uses_annex(host)) return LIFE_NOT_TOLD;
        uint32_t alive = static_cast<uint32_t>(host->process.pid);
        __atomic_compare_exchange_n(life, &alive, waited_for, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
        const int64_t left = until - now_ns();
        if (!goes_on(host) || left <= 0) return LIFE_TOLD;
        const int error = sleep_while(life, waited_for, time_of(left));
        if (error == EINTR && host->steps.is_interruptible) return LIFE_INTERRUPTED;
    }
    return LIFE_TOLD;
}

t_LIFE_TOLD sleep_on_life(ka_host *host, int64_t until)
{
    uint32_t *life = &host->segment.annex->life;
    __atomic_store_n(&host->cancel.sleeps_on, life, __ATOMIC_SEQ_CST);
    const t_LIFE_TOLD told = sleep_on(host, life, until);
    __atomic_store_n(&host->cancel.sleeps_on, nullptr, __ATOMIC_SEQ_CST);
    await_canceller(host); /* it may use the word that it has found */
    return told;
}

void rouse_sleeper(ka_host *host)
{
    uint32_t *life = __atomic_load_n(&host->cancel.sleeps_on, __ATOMIC_SEQ_CST);
    if (!life) return;
    __atomic_fetch_and(life, ~uint32_t{wire::LIFE_WAITED_FOR}, __ATOMIC_SEQ_CST);
    syscall(SYS_futex, life, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}
