/* SPDX-License-Identifier: MIT
 *
 * See fd.h. */
#include "fd.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

void close_fd(int *fd)
{
    if (*fd != -1) close(*fd);
    *fd = -1;
}

static bool close_range_of(unsigned first, unsigned last)
{
    return first > last || syscall(SYS_close_range, first, last, 0u) == 0;
}

/* kept are in ascending order; false where the call is refused: by an older kernel, by the filter of a container. */
static bool close_between(const int kept[2])
{
    unsigned from = 0;
    for (int i = 0; i < 2; i++) {
        if (kept[i] < 0) continue;
        const unsigned fd = static_cast<unsigned>(kept[i]);
        if (fd > from && !close_range_of(from, fd - 1)) return false;
        from = fd + 1;
    }
    return close_range_of(from, ~0u);
}

static int close_listed(const int kept[2])
{
    alignas(struct dirent64) char entries[1024];
    const int list = open("/proc/thread-self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (list == -1) return errno;
    ssize_t length = 0;
    while ((length = getdents64(list, entries, sizeof entries)) > 0) {
        for (ssize_t at = 0; at < length;) {
            const void *here = entries + at;
            const struct dirent64 *entry = static_cast<const struct dirent64 *>(here);
            const int fd = atoi(entry->d_name);
            if (entry->d_name[0] != '.' && fd != kept[0] && fd != kept[1] && fd != list) close(fd);
            at += entry->d_reclen;
        }
    }
    const int error = length == -1 ? errno : 0;
    close(list);
    return error;
}

int close_all_but(int first, int second)
{
    const int kept[] = {first < second ? first : second, first < second ? second : first};
    return close_between(kept) ? 0 : close_listed(kept);
}

const char *errno_text(int error_number)
{
    const char *text = strerrordesc_np(error_number);
    return text ? text : "unknown error";
}
