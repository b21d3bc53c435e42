/* SPDX-License-Identifier: MIT
 *
 * Closes a host. */
#include <stdlib.h>

#include "base/fd.h"
#include "base/thread.h"
#include "block/segment.h"
#include "doorbell/wait_fd.h"
#include "end.h"
#include "fork.h"
#include "host/host.h"
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

int32_t ka_close(ka_host *host)
{
    HOLD_CANCELLATION;
    if (!host) return KA_DONE;
    if (take_turn(host, TURN_CLOSE) != KA_DONE) return host->error.error_class;
    end_host(host);
    if (host->life.left.pid != 0) return fail_left(host);
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
    free(host);
    return KA_DONE;
}
