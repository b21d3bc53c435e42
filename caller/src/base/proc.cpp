/* SPDX-License-Identifier: MIT
 *
 * See proc.h. */
#include "proc.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

/* By way of the thread: /proc shows no descriptors of a process whose main thread has ended. */
pid_t number_in_proc(int pid_fd)
{
    char path[48];
    char text[512];
    snprintf(path, sizeof path, "/proc/thread-self/fdinfo/%d", pid_fd);
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd == -1) return 0;
    const ssize_t length = read(fd, text, sizeof text - 1);
    close(fd);
    text[length > 0 ? length : 0] = '\0';
    const char *number = strstr(text, "\nPid:\t");
    const long found = number ? strtol(number + strlen("\nPid:\t"), nullptr, 10) : 0;
    if (found > 0) return static_cast<pid_t>(found);
    errno = ESRCH;
    return 0;
}

int open_proc_file(pid_t number, const char *name, int flags)
{
    char path[40];
    snprintf(path, sizeof path, "/proc/%d/%s", number, name);
    return open(path, flags | O_CLOEXEC);
}

/* ---- Status ---------------------------------------------------------------------------------------------------- */

static const char *field(const char *status, const char *name)
{
    const char *found = strstr(status, name);
    return found ? found + strlen(name) : nullptr;
}

bool read_status(int status_fd, t_STATUS *status)
{
    char text[8192];
    const ssize_t length = pread(status_fd, text, sizeof text - 1, 0);
    if (length <= 0) return false;
    text[length] = '\0';
    const char *state = field(text, "\nState:\t");
    const char *own = field(text, "\nSigPnd:\t");
    const char *shared = field(text, "\nShdPnd:\t");
    const char *blocked = field(text, "\nSigBlk:\t");
    const char *ignored = field(text, "\nSigIgn:\t");
    const char *caught = field(text, "\nSigCgt:\t");
    if (!state || !own || !shared || !blocked || !ignored || !caught) return false;
    status->asleep = *state == 'S';
    status->pending = strtoull(own, nullptr, 16) | strtoull(shared, nullptr, 16);
    status->blocked = strtoull(blocked, nullptr, 16);
    status->ignored = strtoull(ignored, nullptr, 16);
    status->caught = strtoull(caught, nullptr, 16);
    return true;
}

/* ---- Segments -------------------------------------------------------------------------------------------------- */

/* The kernel shows a segment among the mappings of a process: its inode is the identifier. */
static bool maps_segment(FILE *maps, int32_t id)
{
    char line[512];
    while (fgets(line, sizeof line, maps)) {
        char rights[8] = "";
        char path[8] = "";
        unsigned long inode = 0;
        if (sscanf(line, "%*x-%*x %7s %*x %*x:%*x %lu %7s", rights, &inode, path) == 3 &&
            strcmp(rights, "rw-s") == 0 && strncmp(path, "/SYSV", 5) == 0 && inode == static_cast<unsigned long>(id))
            return true;
    }
    return false;
}

bool has_attached(pid_t number, int32_t segment_id)
{
    const int fd = number != 0 ? open_proc_file(number, "maps", O_RDONLY) : -1;
    if (fd == -1) return false;
    FILE *maps = fdopen(fd, "r");
    const bool found = maps && maps_segment(maps, segment_id);
    if (maps)
        fclose(maps);
    else
        close(fd);
    return found;
}
