/* SPDX-License-Identifier: MIT
 *
 * SIGUSR2 on the caller's side, in the two ways of waiting for it.
 *
 * Safe: a handler for the whole process (handler.cpp), and SIGUSR2 blocked in the calling thread except inside its
 * wait, so that no reply slips in between the look at the block and the wait. While a thread waits, its own id is
 * in the block: the kernel finds the process by the id of any of its threads, and prefers that thread.
 *
 * Fast: SIGUSR2 is blocked in the thread that opened the host, and read through a descriptor.
 *
 * In both a signal is only ever a hint to look: standard signals merge, and anyone may send one. */
#include "doorbell.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <time.h>
#include <unistd.h>

#include "base/fd.h"
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
static thread_local pid_t thread_id; /* of this thread, 0 before it is asked for */

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
    host->waiting.doorbell_thread = gettid();
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
    const bool held_here = host->waiting.doorbell_thread == gettid();
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

void regain_doorbell(ka_host *host)
{
    if (host->waiting.doorbell_thread == 0 || is_owned(host, OWNED_DOORBELL)) return;
    host->waiting.doorbell_fd = -1;
    reopen_doorbell(host);
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
    constexpr struct timespec no_time = {};
    const sigset_t set = doorbell_set();
    if (host->waiting.doorbell_thread == 0) return EAGAIN;
    int result = -1;
    do {
        result = sigtimedwait(&set, nullptr, &no_time);
    } while (result == -1 && errno == EINTR);
    return result == -1 ? errno : 0;
}

/* ---- Safe ------------------------------------------------------------------------------------------------------ */

static int32_t open_safe(ka_host *host)
{
    host->waiting.waiter = claim_waiter(host);
    if (!host->waiting.waiter) return fail_system(host, ENOMEM, "cannot wait for the host");
    const int error = open_hosts == 0 ? install_handler() : 0;
    return error == 0 ? KA_DONE : fail_system(host, error, "cannot handle SIGUSR2");
}

static void close_safe(ka_host *host)
{
    if (!host->waiting.waiter) return;
    release_waiter(host->waiting.waiter);
    host->waiting.waiter = nullptr;
    if (open_hosts == 0) remove_handler();
}

/* Asking the kernel each time would be a tenth of what the wait costs. */
static pid_t own_thread(void)
{
    if (thread_id == 0) thread_id = gettid();
    return thread_id;
}

pid_t waiting_thread(const ka_host *host)
{
    return host->waiting.is_waiting ? own_thread() : host->life.caller;
}

void begin_wait(ka_host *host)
{
    host->waiting.is_numbered = host_uses_annex(host);
    host->waiting.by_annex = host->waiting.is_numbered && host->options.cancel_fd == -1;
    host->waiting.is_quiet = host->waiting.by_annex && host->options.transport == KA_TRANSPORT_FAST;
    if (host->waiting.by_annex || !host->waiting.waiter) return;
    const sigset_t set = doorbell_set();
    pthread_sigmask(SIG_BLOCK, &set, &host->waiting.mask_before);
    host->waiting.mask_waiting = host->waiting.mask_before;
    sigdelset(&host->waiting.mask_waiting, SIGUSR2);
    store_caller(host, own_thread());
    enter_waiter(host->waiting.waiter, own_thread());
    host->waiting.is_waiting = true;
}

void end_wait(ka_host *host)
{
    if (!host->waiting.is_waiting) return;
    host->waiting.is_waiting = false;
    leave_waiter(host->waiting.waiter);
    store_caller(host, host->life.caller);
    pthread_sigmask(SIG_SETMASK, &host->waiting.mask_before, nullptr);
}

/* ---- Both ------------------------------------------------------------------------------------------------------ */

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
    if ((wanted == KA_WAIT_FAST ? open_fast(host) : open_safe(host)) != KA_DONE) {
        close_safe(host);
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
    close_safe(host);
    pthread_mutex_unlock(&lock);
}

/* The handler stays, or the signal blocked, as long as the program runs. */
void leave_doorbell(ka_host *host)
{
    host->waiting.is_open = false;
    host->waiting.waiter = nullptr;
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
    if (open_hosts > 0 && way_of_waiting == KA_WAIT_SAFE) {
        forget_waiters();
        remove_handler_in_child();
    }
    if (hosts_held > 0) unblock_signal();
    hosts_held = 0;
    thread_id = 0;
    open_hosts = 0;
}
