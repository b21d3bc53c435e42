/* SPDX-License-Identifier: MIT
 *
 * A thread blocks SIGUSR2 except while it waits. A reply that comes just before or after goes to some other thread,
 * and two pending signals merge into one. So the handler, in whichever thread it runs, wakes every waiting thread
 * whose host sent the signal or changed its block, with a signal addressed to that thread.
 *
 * A thread is woken once in a wait at most, and takes that signal before it goes on: none can reach it later, when
 * the program's own handler, or none, is in place. A reply that every handler misses is found by the thread itself,
 * which looks at the block from time to time (call/reply.cpp). */
#include "waiters.h"

#include <errno.h>
#include <sched.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "block/segment.h"
#include "host/host.h"

static std::atomic<t_WAITER *> waiters; /* only ever grows */

/* ---- Processes that were hosts --------------------------------------------------------------------------------- */

enum : uint32_t { DEPARTED = 64, REMEMBERED_S = 10 };

namespace {
struct t_DEPARTED {
    std::atomic<pid_t> process;
    std::atomic<uint32_t> until_s;
};
} // namespace
static t_DEPARTED departed[DEPARTED];
static std::atomic<uint32_t> departures;

static uint32_t now_s(void)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint32_t>(now.tv_sec);
}

static void remember_departed(pid_t process)
{
    t_DEPARTED *one = &departed[departures++ % DEPARTED];
    one->until_s = now_s() + REMEMBERED_S;
    one->process = process;
}

static bool is_host(pid_t process)
{
    if (process == 0) return false;
    for (const t_WAITER *one = waiters; one; one = one->next)
        if (one->process == process) return true;
    for (const t_DEPARTED &one : departed)
        if (one.process == process && now_s() < one.until_s) return true;
    return false;
}

/* ---- Records --------------------------------------------------------------------------------------------------- */

static t_WAITER *reuse_waiter(void)
{
    for (t_WAITER *one = waiters; one; one = one->next) {
        int32_t state = WAITER_FREE;
        if (one->state.compare_exchange_strong(state, WAITER_IDLE)) return one;
    }
    return nullptr;
}

static t_WAITER *new_waiter(void)
{
    t_WAITER *one = static_cast<t_WAITER *>(calloc(1, sizeof *one));
    if (!one) return nullptr;
    one->state = WAITER_IDLE;
    one->next = waiters;
    while (!waiters.compare_exchange_weak(one->next, one))
        ;
    return one;
}

t_WAITER *claim_waiter(const ka_host *host)
{
    t_WAITER *waiter = reuse_waiter();
    if (!waiter) waiter = new_waiter();
    if (waiter) waiter->host = host;
    return waiter;
}

void release_waiter(t_WAITER *waiter)
{
    const pid_t process = waiter->process;
    if (process != 0) remember_departed(process);
    waiter->process = 0;
    waiter->state = WAITER_FREE;
}

void forget_waiters(void)
{
    for (t_WAITER *one = waiters; one; one = one->next) {
        one->process = 0;
        one->state = WAITER_FREE;
    }
}

/* ---- Waking; in the handler ------------------------------------------------------------------------------------ */

static bool has_changed(const ka_host *host)
{
    return load32(host, host->segment.layout->cbval) != host->waiting.cbval_before ||
           load32(host, host->segment.layout->retcode) != host->waiting.retcode_before;
}

static bool send_wake_signal(const t_WAITER *waiter)
{
    siginfo_t info = {};
    info.si_code = SI_QUEUE;
    info.si_pid = getpid();
    info.si_uid = getuid();
    info.si_value.sival_ptr = const_cast<t_WAITER *>(waiter);
    return syscall(SYS_rt_tgsigqueueinfo, info.si_pid, waiter->thread, SIGUSR2, &info) == 0;
}

/* The host cannot go away while its block is looked at: leave_waiter waits for the end of it. */
static bool begin_look(t_WAITER *waiter)
{
    for (;;) {
        int32_t state = waiter->state;
        if (state == WAITER_WAITING) {
            if (waiter->state.compare_exchange_strong(state, WAITER_LOOKED_AT)) return true;
        } else if (state == WAITER_LOOKED_AT) {
            if (waiter->state.compare_exchange_strong(state, WAITER_LOOK_AGAIN)) return false;
        } else {
            return false;
        }
    }
}

static void wake(t_WAITER *waiter, pid_t sender, pid_t own_thread)
{
    if (!begin_look(waiter)) return;
    for (;;) {
        const bool wanted = waiter->process == sender || has_changed(waiter->host);
        if (wanted && waiter->thread != own_thread && send_wake_signal(waiter)) {
            waiter->state = WAITER_WOKEN;
            return;
        }
        int32_t state = WAITER_LOOKED_AT;
        if (waiter->state.compare_exchange_strong(state, WAITER_WAITING)) return;
        waiter->state = WAITER_LOOKED_AT;
    }
}

/* The pointer in a signal can be anything: it is only compared. */
static t_WAITER *woken_by(const siginfo_t *info)
{
    if (info->si_code != SI_QUEUE || info->si_pid != getpid()) return nullptr;
    for (t_WAITER *one = waiters; one; one = one->next)
        if (info->si_value.sival_ptr == one) return one;
    return nullptr;
}

bool take_signal(const siginfo_t *info)
{
    t_WAITER *woken = woken_by(info);
    if (woken) {
        woken->arrived = true;
        return true;
    }
    const pid_t own_thread = gettid();
    for (t_WAITER *one = waiters; one; one = one->next)
        wake(one, info->si_pid, own_thread);
    return info->si_code == SI_USER && is_host(info->si_pid); /* a timer's signal has something else in that place */
}

/* ---- Waiting ------------------------------------------------------------------------------------------------- */

/* A signal that is not ours goes back to where it was pending. */
static void put_back(siginfo_t *info)
{
    if (info->si_code == SI_TKILL)
        syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), SIGUSR2, info);
    else
        syscall(SYS_rt_sigqueueinfo, getpid(), SIGUSR2, info);
}

/* A pending SIGUSR2, or false. By the system call itself: the C library's function makes a signal to the thread look
   like one to the process. */
static bool take_pending(siginfo_t *info)
{
    static constexpr uint64_t set = uint64_t{1} << (SIGUSR2 - 1);
    static constexpr int64_t no_time[2] = {}; /* in any width */
    long number = 0;
    do
        number = syscall(SYS_rt_sigtimedwait, &set, info, no_time, sizeof set);
    while (number == -1 && errno == EINTR);
    return number != -1;
}

/* Ours has been sent: it has arrived in the handler, or is pending. Signals to a thread come before those to the
   process; where one was pending already ours was merged into it, and the queue is found empty. */
static void take_wake_signal(const t_WAITER *waiter)
{
    siginfo_t foreign;
    siginfo_t info;
    bool is_foreign = false;
    while (!waiter->arrived && take_pending(&info)) {
        if (take_signal(&info)) continue;
        foreign = info;
        is_foreign = true;
    }
    if (is_foreign) put_back(&foreign);
}

void enter_waiter(t_WAITER *waiter, pid_t own_thread)
{
    waiter->thread = own_thread;
    waiter->arrived = false;
    waiter->state = WAITER_WAITING;
}

/* The handler is at work on another processor, or needs this one, perhaps with a lower priority. */
static void wait_for_handler(int attempts)
{
    constexpr struct timespec moment = {0, 20000};
    if (attempts < 100)
        sched_yield();
    else
        clock_nanosleep(CLOCK_MONOTONIC, 0, &moment, nullptr);
}

void leave_waiter(t_WAITER *waiter)
{
    for (int attempts = 0;; attempts++) {
        int32_t state = WAITER_WAITING;
        if (waiter->state.compare_exchange_strong(state, WAITER_IDLE)) return;
        if (state == WAITER_WOKEN) break;
        wait_for_handler(attempts);
    }
    take_wake_signal(waiter);
    waiter->state = WAITER_IDLE;
}
