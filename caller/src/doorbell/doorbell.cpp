/* SPDX-License-Identifier: MIT
 *
 * SIGUSR2 on the caller's side, in the two ways of waiting for it.
 *
 * Safe: a handler for the whole process (handler.cpp). In the first moment of a wait a signal may reach the handler
 * in the calling thread just before that sleeps; the handler tells it, and the moment is short. After it SIGUSR2 is
 * blocked in the calling thread except inside its wait, so that no reply slips in between the look at the block and
 * the wait.
 *
 * Fast: SIGUSR2 is blocked in the thread that opened the host, and after the first moment a descriptor tells that it
 * is pending.
 *
 * In both, while a thread waits, its own id is in the block: the kernel finds the process by the id of any of its
 * threads, and prefers that thread.
 *
 * In both a signal is only ever a hint to look: standard signals merge, and anyone may send one. */
#include "doorbell.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <time.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/fd.h"
#include "base/thread.h"
#include "block/annex.h"
#include "block/segment.h"
#include "handler.h"
#include "host/host.h"
#include "host/owned.h"
#include "waiters.h"

/* Guarded by lock: open hosts, and how they wait. */
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static int32_t open_hosts;
static int32_t way_of_waiting;

/* Of this thread: hosts for which SIGUSR2 is held, and whether it was blocked before the first of them. */
static thread_local int32_t hosts_held;
static thread_local bool was_blocked;

/* A wait that would end before the kernel's next tick makes it set its timer anew each time: on virtual machines that
   takes as long as half a call. Ticks are 1 to 4 ms apart nearly everywhere. */
enum : int64_t { FIRST_MOMENT_NS = 5 * NS_PER_MS };

static sigset_t doorbell_set(void)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR2);
    return set;
}

/* ---- Fast ------------------------------------------------------------------------------------------------------ */

static void hold_signal(ka_host *host)
{
    host->waiting.doorbell_thread = own_thread();
    if (hosts_held++ > 0) return;
    const sigset_t set = doorbell_set();
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &set, &before);
    was_blocked = sigismember(&before, SIGUSR2) == 1;
}

static void unblock_signal(void)
{
    const sigset_t set = doorbell_set();
    if (!was_blocked) pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

/* The host is dead by now, and its last signal taken: none can arrive unblocked. */
static void release_signal(ka_host *host)
{
    const bool held_here = host->waiting.doorbell_thread == own_thread();
    host->waiting.doorbell_thread = 0;
    if (held_here && --hosts_held == 0) unblock_signal();
}

static void open_doorbell_fd(ka_host *host)
{
    const sigset_t set = doorbell_set();
    host->waiting.doorbell_fd = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (host->waiting.doorbell_fd != -1) note_owned(host, OWNED_DOORBELL); /* errno is wanted otherwise */
}

void reopen_doorbell(ka_host *host)
{
    if (host->waiting.doorbell_thread != 0 && host->waiting.doorbell_fd == -1) open_doorbell_fd(host);
}

bool regain_doorbell(ka_host *host)
{
    if (host->waiting.doorbell_thread == 0 || is_owned(host, OWNED_DOORBELL)) return false;
    host->waiting.doorbell_fd = -1;
    reopen_doorbell(host);
    return true;
}

static int32_t open_fast(ka_host *host)
{
    open_doorbell_fd(host);
    if (host->waiting.doorbell_fd == -1) return fail_system(host, errno, "cannot create a signalfd");
    hold_signal(host);
    return KA_DONE;
}

static void close_fast(ka_host *host)
{
    if (host->waiting.doorbell_thread == 0) return;
    for (int attempts = 0; attempts < 4 && drain_doorbell(host) != EAGAIN; attempts++)
        ; /* two can be pending, and a refusal does not last */
    close_fd(&host->waiting.doorbell_fd);
    release_signal(host);
}

/* Not by the descriptor, which is only waited for: the program may have lost it. */
int drain_doorbell(const ka_host *host)
{
    return host->waiting.doorbell_thread == 0 ? EAGAIN : drain_signal();
}

/* ---- Safe ------------------------------------------------------------------------------------------------------ */

static int32_t open_safe(ka_host *host)
{
    const int error = install_handler(open_hosts == 0);
    return error == 0 ? KA_DONE : fail_system(host, error, "cannot handle SIGUSR2");
}

static bool is_safe(const ka_host *host)
{
    return host->waiting.doorbell_thread == 0;
}

bool block_doorbell(ka_host *host)
{
    if (!host->waiting.is_waiting || host->waiting.is_blocked || !is_safe(host)) return true;
    const sigset_t set = doorbell_set();
    pthread_sigmask(SIG_BLOCK, &set, &host->waiting.mask_before);
    host->waiting.mask_waiting = host->waiting.mask_before;
    sigdelset(&host->waiting.mask_waiting, SIGUSR2);
    host->waiting.is_blocked = true;
    return !was_told();
}

/* ---- Both ------------------------------------------------------------------------------------------------------ */

pid_t waiting_thread(const ka_host *host)
{
    return host->waiting.is_waiting ? own_thread() : host->life.caller;
}

static void wait_here(ka_host *host)
{
    host->waiting.is_waiting = true;
    host->waiting.is_brief = host->options.cancel_fd == -1;
    if (!host->waiting.is_brief) block_doorbell(host);
    store_caller(host, own_thread());
}

/* The program may have installed another handler since: without ours the reply would end the program, reach a handler
   that does not know it, or be dropped. */
int hear_reply(const ka_host *host)
{
    if (!is_safe(host) || (host_uses_annex(host) && !wants_signals(host)) || handler_is_installed()) return 0;
    pthread_mutex_lock(&lock);
    const int error = install_handler(false);
    pthread_mutex_unlock(&lock);
    return error;
}

void begin_wait(ka_host *host)
{
    const bool by_signals = wants_signals(host);
    host->waiting.is_numbered = host_uses_annex(host);
    host->waiting.by_annex = host->waiting.is_numbered && !by_signals;
    host->waiting.is_quiet = host->waiting.by_annex && host->options.transport == KA_TRANSPORT_FAST;
    host->waiting.is_found = by_signals; /* it was looked for before the request */
    if (host->waiting.by_annex) return;
    host->waiting.waiter->heard = false;
    wait_here(host);
    enter_waiter(host->waiting.waiter);
}

bool await_doorbell(const ka_host *host, int64_t until)
{
    const int64_t left = until - now_ns();
    const int64_t moment = left < FIRST_MOMENT_NS ? left : static_cast<int64_t>(FIRST_MOMENT_NS);
    return await_signal(moment > 0 ? moment : 0, !is_safe(host));
}

static void wait_no_more_here(ka_host *host)
{
    host->waiting.is_waiting = false;
    host->waiting.is_brief = false;
    store_caller(host, host->life.caller);
    if (host->waiting.is_blocked) pthread_sigmask(SIG_SETMASK, &host->waiting.mask_before, nullptr);
    host->waiting.is_blocked = false;
}

void end_wait(ka_host *host)
{
    if (!host->waiting.is_waiting) return;
    leave_waiter(host->waiting.waiter);
    wait_no_more_here(host);
}

void go_away(ka_host *host)
{
    if (!host->waiting.is_waiting) return;
    go_away_from_waiter(host->waiting.waiter);
    wait_no_more_here(host);
    host->waiting.is_away = true;
}

void come_back(ka_host *host)
{
    if (!host->waiting.is_away) return;
    host->waiting.is_away = false;
    host->waiting.is_found = false; /* the program may have closed descriptors since */
    wait_here(host);
    come_back_to_waiter(host->waiting.waiter);
}

void ask_for_doorbell(ka_host *host)
{
    if (!host->waiting.by_annex) return;
    hear_reply(host); /* where that is refused the reply is found in time by a look */
    host->waiting.by_annex = false;
    host->waiting.is_away = true;
    enter_waiter(host->waiting.waiter);
    go_away_from_waiter(host->waiting.waiter);
    ask_for_signal(host);
}

/* A ka_cancel reads it at any moment. */
static void set_waiter(ka_host *host, t_WAITER *waiter)
{
    __atomic_store_n(&host->waiting.waiter, waiter, __ATOMIC_RELEASE);
}

static void let_waiter_go(ka_host *host)
{
    if (host->waiting.waiter) release_waiter(host->waiting.waiter);
    set_waiter(host, nullptr);
}

static int32_t open_locked(ka_host *host)
{
    const int32_t wanted = host->options.waiting;
    if (wanted != KA_WAIT_SAFE && wanted != KA_WAIT_FAST)
        return fail(host, KA_ARGUMENT, "waiting is %d; it is KA_WAIT_SAFE (%d) or KA_WAIT_FAST (%d)", wanted,
                    KA_WAIT_SAFE, KA_WAIT_FAST);
    if (open_hosts > 0 && wanted != way_of_waiting) {
        return fail(host, KA_ARGUMENT, "waiting is %s, but open hosts of this program wait the %s way",
                    wanted == KA_WAIT_FAST ? "KA_WAIT_FAST" : "KA_WAIT_SAFE",
                    wanted == KA_WAIT_FAST ? "safe" : "fast");
    }
    set_waiter(host, claim_waiter(host));
    if (!host->waiting.waiter) return fail_system(host, ENOMEM, "cannot wait for the host");
    if ((wanted == KA_WAIT_FAST ? open_fast(host) : open_safe(host)) != KA_DONE) {
        let_waiter_go(host);
        return host->error.error_class;
    }
    way_of_waiting = wanted;
    host->life.caller = getpid();
    host->waiting.is_open = true;
    open_hosts++;
    return KA_DONE;
}

int32_t open_doorbell(ka_host *host)
{
    pthread_mutex_lock(&lock);
    const int32_t result = open_locked(host);
    pthread_mutex_unlock(&lock);
    return result;
}

void close_doorbell(ka_host *host)
{
    if (!host->waiting.is_open) return;
    host->waiting.is_open = false;
    pthread_mutex_lock(&lock);
    open_hosts--;
    close_fast(host);
    let_waiter_go(host);
    if (open_hosts == 0 && way_of_waiting == KA_WAIT_SAFE) remove_handler();
    pthread_mutex_unlock(&lock);
}

/* The handler stays, or the signal blocked, as long as the program runs. */
void leave_doorbell(ka_host *host)
{
    host->waiting.is_open = false;
    set_waiter(host, nullptr);
    host->waiting.doorbell_thread = 0;
    close_fd(&host->waiting.doorbell_fd);
}

/* ---- At a fork ------------------------------------------------------------------------------------------------- */

void hold_doorbells(void)
{
    pthread_mutex_lock(&lock);
}

void release_doorbells(void)
{
    pthread_mutex_unlock(&lock);
}

/* The child's hosts will be its own, and so is what SIGUSR2 means to it until then. */
void begin_doorbells_anew(void)
{
    if (open_hosts > 0) forget_waiters();
    if (open_hosts > 0 && way_of_waiting == KA_WAIT_SAFE) remove_handler_in_child();
    if (hosts_held > 0) unblock_signal();
    hosts_held = 0;
    forget_own_thread();
    open_hosts = 0;
}
