/* SPDX-License-Identifier: MIT
 *
 * See runner.h. */
#include "runner.h"

#include <errno.h>
#include <unistd.h>

#include "attached.h"
#include "base/clock.h"
#include "base/fd.h"
#include "doorbell/wait.h"
#include "doorbell/waiters.h"
#include "end.h"
#include "guard.h"
#include "host/owned.h"
#include "tracer.h"

enum : int64_t { FIRST_LOOK_NS = 50000, LONGEST_LOOK_NS = 2000000 };

/* The command, which was the record's process, may be the host itself. */
static bool find_host(ka_host *host)
{
    pid_t pid = 0;
    int pid_fd = open_attached(host, &pid);
    if (pid_fd == -1) return false;
    if (pid == host->process.pid) {
        close_fd(&pid_fd);
        return true;
    }
    host->process.command = host->process.pid;
    close_fd(&host->process.pid_fd);
    close_fd(&host->process.status_fd);
    close_fd(&host->process.syscall_fd);
    host->process.pid = pid;
    host->shown_pid = pid;
    host->process.pid_fd = pid_fd;
    if (host->waiting.waiter) host->waiting.waiter->process = pid;
    open_views(host);
    return true;
}

static int32_t fail_without_host(ka_host *host, int woken)
{
    const char *command = host->life.words[0];
    if (woken & WOKEN_BY_ERROR) return fail_system(host, errno, "cannot wait for the host");
    if (woken & WOKEN_BY_CANCEL) return fail(host, KA_CANCELLED, "the start of %.300s was cancelled", host->module);
    if (woken & WOKEN_BY_DEATH) return fail_command(host);
    return fail(host, KA_DEADLINE, "%.200s did not start under the command \"%.60s\" within %d ms", host->module,
                command, host->options.deadline_ms);
}

int32_t await_host(ka_host *host, int64_t deadline)
{
    int64_t pause = FIRST_LOOK_NS;
    int woken = 0;
    while (!find_host(host)) {
        if ((woken & (WOKEN_BY_DEATH | WOKEN_BY_CANCEL | WOKEN_BY_ERROR)) != 0 || now_ns() >= deadline)
            return fail_without_host(host, woken);
        const int64_t look_again = now_ns() + pause;
        woken = wait_until(host, -1, look_again < deadline ? look_again : deadline);
        pause = pause * 2 < LONGEST_LOOK_NS ? pause * 2 : static_cast<int64_t>(LONGEST_LOOK_NS);
    }
    host->process.attached = true;
    const int error = host->process.command != 0 ? start_guard(host) : 0; /* the host may leave the group */
    if (error != 0) return fail_system(host, error, "cannot create a process");
    start_inspection(host);
    return KA_DONE;
}
