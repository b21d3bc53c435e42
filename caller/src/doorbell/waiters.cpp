/* SPDX-License-Identifier: MIT
 *
 * A host replies to the thread that waits for it, and there the signal ends the wait. But a thread that is not yet or
 * no longer waiting has SIGUSR2 blocked, and then the kernel gives the signal to any other; and of two signals that
 * are on their way at the same moment one is lost. So the handler, wherever it runs, rouses every other thread whose
 * host sent the signal or has changed its block, by a signal to that very thread.
 *
 * A thread is roused once in a wait at most, and takes that signal before it goes on: none can reach it later, when
 * the program's own handler, or none, is in place. What a handler misses the thread finds by looking at the block
 * from time to time (reply.cpp). */
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

static std::atomic<t_LISTENER *> listeners; /* only ever grows */

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
    for (const t_LISTENER *one = listeners; one; one = one->next)
        if (one->process == process) return true;
    for (const t_DEPARTED &one : departed)
        if (one.process == process && now_s() < one.until_s) return true;
    return false;
}

/* ---- Records --------------------------------------------------------------------------------------------------- */

static t_LISTENER *reuse_listener(void)
{
    for (t_LISTENER *one = listeners; one; one = one->next) {
        int32_t state = LISTENER_FREE;
        if (one->state.compare_exchange_strong(state, LISTENER_IDLE)) return one;
    }
    return nullptr;
}

static t_LISTENER *new_listener(void)
{
    t_LISTENER *one = static_cast<t_LISTENER *>(calloc(1, sizeof *one));
    if (!one) return nullptr;
    one->state = LISTENER_IDLE;
    one->next = listeners;
    while (!listeners.compare_exchange_weak(one->next, one))
        ;
    return one;
}

t_LISTENER *claim_listener(const ka_host *host)
{
    t_LISTENER *listener = reuse_listener();
    if (!listener) listener = new_listener();
    if (listener) listener->host = host;
    return listener;
}

void release_listener(t_LISTENER *listener)
{
    const pid_t process = listener->process;
    if (process != 0) remember_departed(process);
    listener->process = 0;
    listener->state = LISTENER_FREE;
}

void forget_listeners(void)
{
    for (t_LISTENER *one = listeners; one; one = one->next) {
        one->process = 0;
        one->state = LISTENER_FREE;
    }
}

/* ---- Rousing; in the handler ----------------------------------------------------------------------------------- */

static bool has_changed(const ka_host *host)
{
    return load32(host, host->layout->cbval) != host->mark || load32(host, host->layout->retcode) != host->known;
}

static bool send_rousing(const t_LISTENER *listener)
{
    siginfo_t info = {};
    info.si_code = SI_QUEUE;
    info.si_pid = getpid();
    info.si_uid = getuid();
    info.si_value.sival_ptr = const_cast<t_LISTENER *>(listener);
    return syscall(SYS_rt_tgsigqueueinfo, info.si_pid, listener->thread, SIGUSR2, &info) == 0;
}

/* The host cannot go away while its block is looked at: stop_listening waits for the end of it. */
static bool begin_look(t_LISTENER *listener)
{
    for (;;) {
        int32_t state = listener->state;
        if (state == LISTENER_WAITING) {
            if (listener->state.compare_exchange_strong(state, LISTENER_LOOKED_AT)) return true;
        } else if (state == LISTENER_LOOKED_AT) {
            if (listener->state.compare_exchange_strong(state, LISTENER_LOOK_AGAIN)) return false;
        } else {
            return false;
        }
    }
}

static void rouse(t_LISTENER *listener, pid_t sender, pid_t own_thread)
{
    if (!begin_look(listener)) return;
    for (;;) {
        const bool wanted = listener->process == sender || has_changed(listener->host);
        if (wanted && listener->thread != own_thread && send_rousing(listener)) {
            listener->state = LISTENER_ROUSED;
            return;
        }
        int32_t state = LISTENER_LOOKED_AT;
        if (listener->state.compare_exchange_strong(state, LISTENER_WAITING)) return;
        listener->state = LISTENER_LOOKED_AT;
    }
}

/* The pointer in a signal can be anything: it is only compared. */
static t_LISTENER *roused_by(const siginfo_t *info)
{
    if (info->si_code != SI_QUEUE || info->si_pid != getpid()) return nullptr;
    for (t_LISTENER *one = listeners; one; one = one->next)
        if (info->si_value.sival_ptr == one) return one;
    return nullptr;
}

bool take_signal(const siginfo_t *info)
{
    t_LISTENER *roused = roused_by(info);
    if (roused) {
        roused->arrived = true;
        return true;
    }
    const pid_t own_thread = gettid();
    for (t_LISTENER *one = listeners; one; one = one->next)
        rouse(one, info->si_pid, own_thread);
    return info->si_code == SI_USER && is_host(info->si_pid); /* a timer's signal has something else in that place */
}

/* ---- Listening ------------------------------------------------------------------------------------------------- */

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
static void take_rousing(const t_LISTENER *listener)
{
    siginfo_t foreign;
    siginfo_t info;
    bool is_foreign = false;
    while (!listener->arrived && take_pending(&info)) {
        if (take_signal(&info)) continue;
        foreign = info;
        is_foreign = true;
    }
    if (is_foreign) put_back(&foreign);
}

void start_listening(t_LISTENER *listener, pid_t own_thread)
{
    listener->thread = own_thread;
    listener->arrived = false;
    listener->state = LISTENER_WAITING;
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

void stop_listening(t_LISTENER *listener)
{
    for (int attempts = 0;; attempts++) {
        int32_t state = LISTENER_WAITING;
        if (listener->state.compare_exchange_strong(state, LISTENER_IDLE)) return;
        if (state == LISTENER_ROUSED) break;
        wait_for_handler(attempts);
    }
    take_rousing(listener);
    listener->state = LISTENER_IDLE;
}
