/* SPDX-License-Identifier: MIT
 *
 * See attached.h. */
#include "attached.h"

#include <sys/shm.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "base/fd.h"
#include "base/proc.h"

/* Who says in the annex that it is the host, or the last that did anything to the segment, which may be a child of
   the host's. Each is only a hint: it may be another, or dead. */
int open_attached(const ka_host *host, pid_t *pid)
{
    struct shmid_ds segment;
    if (!host->segment.base || shmctl(host->segment.id, IPC_STAT, &segment) != 0 || segment.shm_nattch < 2) return -1;
    const pid_t hints[] = {host->segment.annex->host, segment.shm_lpid};
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

/* That it has attached the segment shows that the number is still its own. */
int reopen_host(const ka_host *host)
{
    int pid_fd = static_cast<int>(syscall(SYS_pidfd_open, host->process.pid, 0));
    if (pid_fd != -1 && !has_attached(number_in_proc(pid_fd), host->segment.id)) close_fd(&pid_fd);
    return pid_fd;
}
