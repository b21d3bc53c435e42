/* SPDX-License-Identifier: MIT
 *
 * See attached.h. */
#include "attached.h"

#include <sys/shm.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "base/fd.h"
#include "base/proc.h"

/* The last that did anything to the segment, or who says in the annex that it is the host. Each is only a hint: it
   may be another, or dead. */
int open_attached(const ka_host *host, pid_t *pid)
{
    struct shmid_ds segment;
    if (!host->segment.base || shmctl(host->segment.id, IPC_STAT, &segment) != 0 || segment.shm_nattch < 2) return -1;
    const pid_t hints[] = {segment.shm_lpid, host->segment.annex->host};
    for (const pid_t hint : hints) {
        if (hint <= 0 || hint == getpid()) continue;
        int pid_fd = static_cast<int>(syscall(SYS_pidfd_open, hint, 0));
        if (pid_fd == -1) continue;
        if (has_attached(number_in_proc(pid_fd), host->segment.id)) {
            *pid = hint;
            return pid_fd;
        }
        close_fd(&pid_fd);
    }
    return -1;
}

int reopen_host(const ka_host *host)
{
    pid_t pid = 0;
    int pid_fd = open_attached(host, &pid);
    if (pid_fd != -1 && pid != host->process.pid) close_fd(&pid_fd);
    return pid_fd;
}
