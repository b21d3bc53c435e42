/* SPDX-License-Identifier: MIT
 *
 * See regain.h. */
#include "regain.h"

#include "base/fd.h"
#include "base/pidfd.h"
#include "doorbell/doorbell.h"
#include "host/owned.h"

bool regain_process(ka_host *host)
{
    if (host->pid_fd == -1 || owns_process(host)) return true;
    disown_lost(host);
    host->pid_fd = reopen_child(host->pid);
    if (host->pid_fd == -1) return false;
    close_fd(&host->status_fd);
    close_fd(&host->syscall_fd);
    open_views(host);
    reopen_doorbell(host);
    return true;
}
