/* SPDX-License-Identifier: MIT
 *
 * Descriptors that the library keeps from call to call. A program that closes all that it does not know takes them
 * away, and what it opens then gets their numbers: so each is known by its file, and one that is another file by now
 * is neither used nor closed. The process itself is found again by its number as long as it is an unreaped child. */
#include "owned.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/pidfd.h"
#include "base/proc.h"

static int *number_of(ka_host *host, t_OWNED which)
{
    int *const numbers[OWNED] = {&host->process.pid_fd,     &host->waiting.doorbell_fd, &host->process.status_fd,
                                 &host->process.syscall_fd, &host->life.error_fd,       &host->wait_fd.fd,
                                 &host->wait_fd.timer_fd,   &host->wait_fd.bell_fd};
    return numbers[which];
}

void note_owned(ka_host *host, t_OWNED which)
{
    struct stat status = {};
    fstat(*number_of(host, which), &status); /* of -1 nothing is known, and nothing asked */
    host->owned[which] = {status.st_dev, status.st_ino};
}

/* nameless becomes true of a file whose inode says nothing. */
static bool is_noted_file(ka_host *host, t_OWNED which, bool *nameless)
{
    struct stat status;
    const t_FILE *noted = &host->owned[which];
    if (fstat(*number_of(host, which), &status) != 0) return false;
    *nameless = (status.st_mode & S_IFMT) == 0;
    return status.st_dev == noted->device && status.st_ino == noted->inode;
}

/* What /proc says of such a file. Those of ka_wait_fd carry a mark of their host: else they would look like others of
   their kind. */
static void describe(const ka_host *host, t_OWNED which, char *text, size_t size)
{
    static_assert(SIGUSR2 == 12, "the set of signals below is that of this number alone");
    const unsigned mark = static_cast<unsigned>(host->wait_fd.mark);
    text[0] = '\0';
    if (which == OWNED_PROCESS) snprintf(text, size, "\nPid:\t"); /* of older kernels */
    if (which == OWNED_DOORBELL) snprintf(text, size, "\nsigmask:\t0000000000000800\n");
    if (which == OWNED_WAIT) snprintf(text, size, " data: %16x ", mark);
    if (which == OWNED_TIMER) snprintf(text, size, "\nit_interval: (%u, 0)\n", mark);
    if (which == OWNED_BELL) snprintf(text, size, "\neventfd-count: %16x\n", mark);
}

static bool is_described(int fd, const char *description)
{
    char path[48];
    char text[1024];
    snprintf(path, sizeof path, "/proc/thread-self/fdinfo/%d", fd);
    const int info_fd = open(path, O_RDONLY | O_CLOEXEC);
    if (info_fd == -1) return false;
    const ssize_t length = read(info_fd, text, sizeof text - 1);
    close(info_fd);
    text[length > 0 ? length : 0] = '\0';
    return strstr(text, description) != nullptr;
}

bool is_owned(ka_host *host, t_OWNED which)
{
    bool nameless = false;
    if (!is_noted_file(host, which, &nameless)) return false;
    if (!nameless) return true;
    char description[48];
    describe(host, which, description, sizeof description);
    return is_described(*number_of(host, which), description);
}

void disown_lost(ka_host *host)
{
    for (int i = 0; i < OWNED; i++) {
        const t_OWNED which = static_cast<t_OWNED>(i);
        if (!is_owned(host, which)) *number_of(host, which) = -1;
    }
}

/* ---- The process ----------------------------------------------------------------------------------------------- */

static void open_view(ka_host *host, t_OWNED which, pid_t number)
{
    *number_of(host, which) = open_proc_file(number, which == OWNED_STATUS ? "status" : "syscall", O_RDONLY);
    note_owned(host, which);
}

void open_views(ka_host *host)
{
    const pid_t number = number_in_proc(host->process.pid_fd);
    open_view(host, OWNED_STATUS, number);
    open_view(host, OWNED_SYSCALL, number);
    note_owned(host, OWNED_PROCESS);
}

/* One that could not be opened is not there to be lost. */
bool regain_view(ka_host *host, t_OWNED which)
{
    bool nameless = false;
    if (*number_of(host, which) == -1 || is_noted_file(host, which, &nameless)) return false;
    open_view(host, which, number_in_proc(host->process.pid_fd));
    return true;
}

/* A nameless file may be another; to learn that it is not a process costs less than to learn its kind. */
bool owns_process(ka_host *host)
{
    bool nameless = false;
    return is_noted_file(host, OWNED_PROCESS, &nameless) &&
           (!nameless || signal_process(host->process.pid_fd, 0) != EBADF);
}
