/* SPDX-License-Identifier: MIT
 *
 * See regain.h. */
#include "regain.h"

#include "attached.h"
#include "base/fd.h"
#include "base/pidfd.h"
#include "doorbell/doorbell.h"
#include "doorbell/wait_fd.h"
#include "host/owned.h"

bool regain_process(ka_host *host)
{
    if (host->process.pid == 0 || owns_process(host)) return true;
    disown_lost(host);
    disarm_wait_fd(host); /* which then waits for those that are opened here */
    host->process.pid_fd = host->process.command != 0 ? reopen_host(host) : reopen_child(host->process.pid);
    if (host->process.pid_fd == -1) return false;
    close_fd(&host->process.status_fd);
    close_fd(&host->process.syscall_fd);
    open_views(host);
    reopen_doorbell(host);
    return true;
}
