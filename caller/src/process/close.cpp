/* SPDX-License-Identifier: MIT
 *
 * Closes a host: now, or when the thread that is inside comes out. */
#include "close.h"

#include <linux/membarrier.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/fd.h"
#include "base/thread.h"
#include "block/segment.h"
#include "doorbell/doorbell.h"
#include "doorbell/wait_fd.h"
#include "end.h"
#include "fork.h"
#include "host/cancel.h"
#include "host/host.h"
#include "host/owner.h"
#include "host/surroundings.h"
#include "host/under.h"

/* Reported once: the next ka_close frees the host. */
static int32_t fail_left(ka_host *host)
{
    const t_LEFT left = host->life.left;
    host->life.left = no_life.left;
    fail(host, KA_SYSTEM, "%.200s: process %d is left: %s", host->module, left.pid,
         left.error != 0 ? errno_text(left.error) : "SIGKILL does not end it");
    host->error.sys_errno = left.error;
    return KA_SYSTEM;
}

static void release_host(ka_host *host)
{
    leave_host(host);
    forget_last_end(&host->last_end);
    close_fd(&host->life.error_fd);
    close_wait_fd(host);
    free(host->report);
    remove_segment(host);
    forget_preparations(host);
    forget_under(host);
    forget_surroundings(host);
    free(host->module);
    bury(host);
}

static int32_t close_host(ka_host *host)
{
    if (take_turn(host, TURN_CLOSE) != KA_DONE) return host->error.error_class;
    end_host(host);
    return host->life.left.pid != 0 ? fail_left(host) : int32_t{KA_DONE};
}

int32_t ka_close(ka_host *host)
{
    HOLD_CANCELLATION;
    if (!host) return KA_DONE;
    const t_VISIT visit = come_in(host, __func__);
    if (visit.refusal != KA_DONE) return visit.refusal;
    const int32_t status = close_host(host);
    if (status == KA_DONE)
        release_host(host);
    else
        come_out(&visit);
    return status;
}

/* ---- Retired --------------------------------------------------------------------------------------------------- */

/* A call in steps may be under way. */
void remove_host(ka_host *host)
{
    HOLD_CANCELLATION;
    come_back(host);
    end_wait(host);
    close_to_cancel(host);
    end_host(host);
    release_host(host);
}

/* A thread that is coming out may have looked at retired before it was set, and yet be seen inside: only until each
   processor has come to an end with its stores. Where the system refuses that, a moment is long enough. */
static void await_stores(void)
{
    constexpr struct timespec moment = {0, 2 * NS_PER_MS};
    syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0);
    if (syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) != 0)
        clock_nanosleep(CLOCK_MONOTONIC, 0, &moment, nullptr);
}

/* False: the thread inside removes it. */
static bool take_retired(ka_host *host)
{
    const uintptr_t self = this_thread();
    host->retired = true;
    if (take_host(host, self)) return true;
    ka_cancel(host);
    await_stores();
    return take_host(host, self);
}

int32_t ka_retire(ka_host *host)
{
    HOLD_CANCELLATION;
    if (!host) return KA_DONE;
    host->held++;
    if (take_retired(host)) remove_host(host);
    host->held--;
    return KA_DONE;
}
