/* SPDX-License-Identifier: MIT
 *
 * A reply can come to another thread than the one that waits for it, which may have SIGUSR2 blocked just then, and
 * two pending signals merge into one. So whoever gets a signal, the handler in any thread or a thread that waits,
 * wakes every waiting thread whose host sent the signal or changed its block, with a signal addressed to that thread.
 *
 * A thread is woken once in a wait at most, and takes that signal before it goes on: none can reach it later, when
 * the program's own handler, or none, is in place. A reply that every handler misses is found by the thread itself,
 * which looks at the block from time to time (call/reply.cpp). */
#include "waiters.h"

#include <errno.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "base/thread.h"
#include "bell.h"
#include "block/annex.h"
#include "block/segment.h"
#include "host/cancel.h"
#include "host/host.h"

static t_ATOMIC<t_WAITER *> waiters; /* only ever grows */

/* A signal has come to this thread; written in the thread itself. In the initial TLS block, because the handler may
   not allocate. */
__attribute__((tls_model("initial-exec"))) static thread_local volatile bool told;

/* ---- Processes that were hosts --------------------------------------------------------------------------------- */

enum : uint32_t { DEPARTED = 64, REMEMBERED_S = 10 };

namespace {
struct t_DEPARTED {
    t_ATOMIC<pid_t> process;
    t_ATOMIC<uint32_t> until_s;
};
} // namespace
static t_DEPARTED departed[DEPARTED];
static t_ATOMIC<uint32_t> departures;

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
        if (one->state.compare_exchange(state, WAITER_IDLE)) return one;
    }
    return nullptr;
}

static t_WAITER *new_waiter(void)
{
    t_WAITER *one = static_cast<t_WAITER *>(calloc(1, sizeof *one));
    if (!one) return nullptr;
    one->state = WAITER_IDLE;
    one->next = waiters;
    while (!waiters.compare_exchange(one->next, one))
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

/* ---- Waking; in the handler too -------------------------------------------------------------------------------- */

bool has_changed(const ka_host *host)
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
            if (waiter->state.compare_exchange(state, WAITER_LOOKED_AT)) return true;
        } else if (state == WAITER_LOOKED_AT) {
            if (waiter->state.compare_exchange(state, WAITER_LOOK_AGAIN)) return false;
        } else {
            return false;
        }
    }
}

static bool concerns(const t_WAITER *waiter, pid_t sender)
{
    const ka_host *host = waiter->host;
    return waiter->process == sender || cancel_state(host) >= CANCEL_WAKES || has_changed(host) || has_replied(host);
}

/* A thread that takes the signal itself needs no other, but one that a ka_cancel interrupts may be about to sleep. */
static bool wake_thread(const t_WAITER *waiter, bool own_too)
{
    return waiter->thread != 0 && (own_too || waiter->thread != own_thread()) && send_wake_signal(waiter);
}

/* Once, until a thread comes back. */
static void note(t_WAITER *waiter)
{
    if (waiter->thread != 0 || is_noted(waiter)) return;
    waiter->noted.store(true, RELAXED);
    ring_wait_fd(waiter->host);
}

static void wake(t_WAITER *waiter, pid_t sender, bool own_too)
{
    if (!begin_look(waiter)) return;
    for (;;) {
        const bool wanted = concerns(waiter, sender);
        if (wanted && wake_thread(waiter, own_too)) {
            waiter->state = WAITER_WOKEN;
            return;
        }
        if (wanted) note(waiter);
        int32_t state = WAITER_LOOKED_AT;
        if (waiter->state.compare_exchange(state, WAITER_WAITING)) return;
        waiter->state = WAITER_LOOKED_AT;
    }
}

void rouse_waiter(t_WAITER *waiter)
{
    wake(waiter, waiter->process, true);
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
    told = true;
    if (woken) {
        woken->arrived = true;
        return true;
    }
    const bool is_sent = info->si_code == SI_USER; /* a timer's signal has something else in that place */
    for (t_WAITER *one = waiters; one; one = one->next) {
        if (is_sent && one->process == info->si_pid) one->heard = true;
        wake(one, info->si_pid, false);
    }
    return is_sent && is_host(info->si_pid);
}

/* ---- Waiting ------------------------------------------------------------------------------------------------- */

/* By the id of this thread: that is the only one of the process's by which it may send what a process has sent. The
   kernel prefers the thread: where SIGUSR2 is not blocked, the handler runs here and now. */
void send_back(siginfo_t *info)
{
    syscall(SYS_rt_sigqueueinfo, own_thread(), SIGUSR2, info);
}

/* A signal that is not ours goes back to where it was pending. */
static void put_back(siginfo_t *info)
{
    if (info->si_code == SI_TKILL)
        syscall(SYS_rt_tgsigqueueinfo, getpid(), own_thread(), SIGUSR2, info);
    else
        send_back(info);
}

/* A SIGUSR2 that is pending, or comes within less than a second. 0 or an errno. By the system call itself: the C
   library's function makes a signal to the thread look like one to the process. */
static int take_within(siginfo_t *info, int64_t ns)
{
    static constexpr uint64_t set = uint64_t{1} << (SIGUSR2 - 1);
    const long time[2] = {0, static_cast<long>(ns)};
    return syscall(SYS_rt_sigtimedwait, &set, info, time, sizeof set) == -1 ? errno : 0;
}

static int take_pending(siginfo_t *info)
{
    int error = 0;
    do
        error = take_within(info, 0);
    while (error == EINTR);
    return error;
}

int drain_signal(void)
{
    siginfo_t info;
    const int error = take_pending(&info);
    if (error == 0) take_signal(&info);
    return error;
}

/* Cleared first by none but this thread: a handler that sets it in between is seen by the look that follows. */
bool was_told(void)
{
    if (!told) return false;
    told = false;
    return true;
}

/* A signal that the handler takes after the look and before the wait is seen when the time is over. */
bool await_signal(int64_t ns, bool drop_foreign)
{
    siginfo_t info;
    if (was_told()) return true;
    const int error = take_within(&info, ns);
    if (error == 0 && !take_signal(&info) && !drop_foreign) put_back(&info);
    errno = error;
    return was_told();
}

/* Ours has been sent: it has arrived in the handler, or is pending. Signals to a thread come before those to the
   process; where one was pending already ours was merged into it, and the queue is found empty. */
static void take_wake_signal(const t_WAITER *waiter)
{
    siginfo_t foreign;
    siginfo_t info;
    bool is_foreign = false;
    while (!waiter->arrived && take_pending(&info) == 0) {
        if (take_signal(&info)) continue;
        foreign = info;
        is_foreign = true;
    }
    if (is_foreign) put_back(&foreign);
}

void enter_waiter(t_WAITER *waiter)
{
    waiter->thread = own_thread();
    waiter->noted.store(false, RELAXED);
    waiter->arrived = false;
    told = false;
    waiter->state = WAITER_WAITING;
}

void leave_waiter(t_WAITER *waiter)
{
    for (int attempts = 0;; attempts++) {
        int32_t state = WAITER_WAITING;
        if (waiter->state.compare_exchange(state, WAITER_IDLE)) return;
        if (state == WAITER_WOKEN) break;
        let_another_finish(attempts);
    }
    take_wake_signal(waiter);
    waiter->state = WAITER_IDLE;
}

void go_away_from_waiter(t_WAITER *waiter)
{
    leave_waiter(waiter);
    waiter->thread = 0;
    waiter->noted.store(was_told(), RELAXED);
    waiter->state = WAITER_WAITING;
}

void come_back_to_waiter(t_WAITER *waiter)
{
    leave_waiter(waiter);
    const bool noted = is_noted(waiter);
    enter_waiter(waiter);
    if (noted) told = true;
}
