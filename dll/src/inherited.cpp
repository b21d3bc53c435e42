/* SPDX-License-Identifier: MIT
 *
 * The descriptors that the process was started with, and what static constructors have printed on them. Nothing of
 * that may stay in a buffer: its descriptor's number soon belongs to a file of the module's.
 *
 * A write must neither wait nor kill, and it is stdio that writes, from buffers of any size that cannot be listed.
 * The descriptors are the host's to change, since it closes them next: one that has no room is pointed at /dev/null;
 * one that may have too little is opened once more, because the flag that keeps writes from waiting belongs to what
 * others have open too. */
#include "inherited.h"

#include <ctype.h>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#else
static constexpr char __libc_single_threaded = 0; /* not every C library tells */
#endif

namespace {

/* Where no folder lists the descriptors, those below this number are looked at: Linux allows no larger ones unless
   its administrator says so. Higher ones stay open. */
constexpr int unlisted_end = 1 << 20;

/* Calls act for each descriptor from 0 to last but standard error. */
void for_each_descriptor(int last, void (*act)(int))
{
    DIR *listing = opendir("/proc/self/fd");
    if (listing == nullptr) {
        for (int fd = 0; fd <= last && fd < unlisted_end; fd++) {
            if (fd != STDERR_FILENO) act(fd);
        }
        return;
    }
    while (const dirent *entry = readdir(listing)) {
        const int fd = atoi(entry->d_name);
        const bool one = isdigit(static_cast<unsigned char>(entry->d_name[0])) != 0;
        if (one && fd <= last && fd != STDERR_FILENO && fd != dirfd(listing)) act(fd);
    }
    closedir(listing);
}

/* Puts opened in the place of fd. */
void replace(int fd, int opened)
{
    dup2(opened, fd);
    close(opened);
}

/* Whatever is written there from now on is gone. */
void discard_output(int fd)
{
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (null == -1) {
        close(fd);
    } else {
        replace(fd, null);
    }
}

bool has_room(int fd)
{
    pollfd look = {fd, POLLOUT, 0};
    return poll(&look, 1, 0) == 1 && look.revents == POLLOUT;
}

/* A socket cannot be opened again; one that has room takes more than a buffer of the usual size. */
void keep_from_waiting(int fd, int flags)
{
    char path[32];
    snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    const int opened = open(path, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (opened != -1) replace(fd, opened);
}

void make_ready(int fd)
{
    struct stat status;
    const int flags = fcntl(fd, F_GETFL);
    if (flags == -1 || (flags & O_ACCMODE) == O_RDONLY) return;
    if (fstat(fd, &status) == -1 || S_ISREG(status.st_mode)) return;
    if (!has_room(fd)) {
        discard_output(fd);
    } else if (S_ISFIFO(status.st_mode) || isatty(fd) == 1) {
        keep_from_waiting(fd, flags);
    }
}

/* A thread may have any stream locked for as long as it likes, standard input while it reads there, and to flush all
   of them would wait for it. Beside threads only standard output is flushed. */
bool flush_streams(void)
{
    if (__libc_single_threaded != 0) return fflush(nullptr) == 0;
    if (ftrylockfile(stdout) != 0) return true; /* that thread prints itself */
    const bool written = fflush_unlocked(stdout) == 0;
    funlockfile(stdout);
    return written;
}

/* Of a stream whose write failed stdio may keep the rest. */
void flush_descriptors(int last)
{
    for_each_descriptor(last, make_ready);
    if (flush_streams()) return;
    for_each_descriptor(last, discard_output);
    flush_streams();
}

/* The signals by which a write ends or stops a process: a reader can go away at any time. Those that come of these
   writes are taken back. */
void flush_output(int last)
{
    constexpr int of_writes[] = {SIGPIPE, SIGXFSZ, SIGTTOU};
    sigset_t held, before, earlier;
    sigemptyset(&held);
    for (const int signal : of_writes)
        sigaddset(&held, signal);
    sigprocmask(SIG_BLOCK, &held, &before);
    sigpending(&earlier);

    flush_descriptors(last);

    for (const int signal : of_writes) {
        if (sigismember(&earlier, signal) == 1) sigdelset(&held, signal);
    }
    const timespec at_once = {};
    while (sigtimedwait(&held, nullptr, &at_once) != -1) {
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
}

void close_descriptor(int fd)
{
    close(fd);
}

/* By its number: not every C library has a function for it. */
bool close_range_of(int first, int last)
{
    return syscall(SYS_close_range, first, last, 0) == 0;
}

/* One system call each where the kernel has it, and allows it: the limit can be 2^30. */
bool close_ranges(int last)
{
    return close_range_of(0, last < 1 ? last : 1) && (last < 3 || close_range_of(3, last));
}

} // namespace

/* Files that were opened above a limit that was lowered since stay. */
void close_inherited(void)
{
    const int last = static_cast<int>(sysconf(_SC_OPEN_MAX)) - 1;
    if (last < 0) return;
    flush_output(last);
    if (!close_ranges(last)) for_each_descriptor(last, close_descriptor);
}
