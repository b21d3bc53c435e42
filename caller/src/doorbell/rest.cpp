/* SPDX-License-Identifier: MIT
 *
 * See rest.h. The host waits in sigsuspend, once for a call and once, inside a call, for the answer to a call-back.
 * Each wait replaces the signal mask as a whole, by a set of its own, and while anything else runs SIGUSR2 is
 * blocked. So a mask equal to one of the two sets names the wait, but one look at it proves nothing: a host that has
 * just been signalled shows the mask of the wait it is leaving until its handler runs.
 *
 * Proof, of three observations made in this order after the signal was sent:
 *  1. The signal is not pending: the kernel has taken it off the queue, and the host runs, on its way into the
 * handler.
 *  2. The host is asleep. On that way it never sleeps, so it is past it: the old wait is over, and the host is inside
 *     the function (which may sleep) or already in its next wait.
 *  3. The mask is that of a wait, and no signal is pending. The function runs with SIGUSR2 blocked, so the host is in
 *     its next wait, and the mask says which.
 * A module that makes its process ignore SIGUSR2 spoils the first: the signal is dropped, not taken. Such a host is
 * never seen at rest.
 *
 * The kernel writes the process state before the signal sets, and the sets together under one lock; so one text of
 * /proc/PID/status can serve as 2 and 3, but 1 needs one of its own before. */
#include "rest.h"

#include <signal.h>
#include <string.h>
#include <unistd.h>

#include "base/proc.h"
#include "block/annex.h"
#include "host/owned.h"
#include "waiters.h"

static constexpr uint64_t waiting_in_callback = signal_bit(SIGINT) | signal_bit(SIGIO) | signal_bit(SIGALRM);
static constexpr uint64_t waiting_idle = waiting_in_callback | signal_bit(SIGUSR1);

static bool read_host_status(ka_host *host, t_STATUS *status)
{
    regain_view(host, OWNED_STATUS);
    return read_status(host->process.status_fd, status);
}

static bool has_doorbell(uint64_t signals)
{
    return (signals & signal_bit(SIGUSR2)) != 0;
}

t_REST look_for_rest(ka_host *host)
{
    t_STATUS seen;
    if (!read_host_status(host, &seen)) return REST_UNKNOWABLE;
    if (host->waiting.progress.taken && seen.asleep) host->waiting.progress.asleep = true;
    if (!has_doorbell(seen.pending)) host->waiting.progress.taken = true;
    if (!host->waiting.progress.asleep || has_doorbell(seen.pending) || !has_doorbell(seen.caught))
        return NOT_AT_REST;
    if (seen.blocked == waiting_idle) return AT_REST_IDLE;
    if (seen.blocked == waiting_in_callback) return AT_REST_IN_CALLBACK;
    return NOT_AT_REST;
}

/* The mask of the first wait comes about in no other way, so one look is proof. That of a call-back from dll_setup is
   shown until it is answered. */
t_REST look_for_first_rest(ka_host *host)
{
    t_STATUS seen;
    if (!read_host_status(host, &seen)) return REST_UNKNOWABLE;
    if (has_doorbell(seen.pending)) return NOT_AT_REST;
    if (seen.blocked == waiting_idle) return AT_REST_IDLE;
    return seen.asleep && has_doorbell(seen.caught) && seen.blocked == waiting_in_callback ? AT_REST_IN_CALLBACK
                                                                                           : NOT_AT_REST;
}

bool request_is_pending(ka_host *host)
{
    t_STATUS seen;
    return read_host_status(host, &seen) && has_doorbell(seen.pending);
}

/* ---- Idle again ------------------------------------------------------------------------------------------------ */

/* Empty when the process runs. False when this cannot be read, or not by this user. */
static bool read_sleep_place(const ka_host *host, t_SLEEP_PLACE *result)
{
    const ssize_t length =
        host->process.syscall_fd == -1 ? -1 : pread(host->process.syscall_fd, result->text, sizeof result->text, 0);
    if (length <= 0) return false;
    const bool runs = result->text[0] == 'r'; /* "running" */
    result->length = runs ? 0 : static_cast<int32_t>(length);
    return true;
}

static bool same_place(const t_SLEEP_PLACE *one, const t_SLEEP_PLACE *other)
{
    return one->length > 0 && one->length == other->length &&
           memcmp(one->text, other->text, static_cast<size_t>(one->length)) == 0;
}

/* It is nowhere else before and after the look at its signals, so that look is of this place. */
static bool learn_idle_place(ka_host *host, const t_SLEEP_PLACE *before)
{
    t_STATUS seen;
    t_SLEEP_PLACE after;
    if (!read_host_status(host, &seen) || !seen.asleep || has_doorbell(seen.pending) || seen.blocked != waiting_idle)
        return false;
    if (!read_sleep_place(host, &after) || !same_place(before, &after)) return false;
    host->process.idle_place = after;
    return true;
}

/* A reply that is a signal is sent after the annex tells of it; it must not merge with one of the program's. */
static bool is_told_to_rest(const ka_host *host)
{
    return rests_by_annex(host) && (!wants_signals(host) || host->waiting.waiter->heard);
}

/* A process that a signal has reached does not sleep any more. So one that sleeps in the system call, and at the
   place, in which the idle host once slept, is idle, and whatever came before this look is done. That costs a tenth
   of the look at the signals, from which the place is learnt. No other file has that text, so the descriptor is
   checked only where the text is another. */
bool is_idle_as_before(const ka_host *host)
{
    t_SLEEP_PLACE now;
    return is_told_to_rest(host) || (read_sleep_place(host, &now) && same_place(&now, &host->process.idle_place));
}

bool is_idle_again(ka_host *host, bool thoroughly)
{
    if (is_told_to_rest(host)) return true;
    t_SLEEP_PLACE now;
    bool known = read_sleep_place(host, &now);
    if (known && same_place(&now, &host->process.idle_place)) return true;
    if (regain_view(host, OWNED_SYSCALL)) known = read_sleep_place(host, &now);
    if (!known) return true;
    if (now.length == 0 || (host->process.idle_place.length > 0 && !thoroughly)) return false;
    return learn_idle_place(host, &now);
}
