/* SPDX-License-Identifier: MIT
 *
 * The descriptor of a host that event loops wait for. The program may have closed it, and opened something else under
 * its number, for which no loop must wait instead. To ask libkacall each time costs more than a call. But the
 * descriptor is one of epoll: a mark is put into it, a file that never has anything to tell, and it is the host's as
 * long as that is in it. A descriptor of another host has the mark, too: so all ask anew when there is another one.
 */
#define _GNU_SOURCE
#include <errno.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include "extension.h"

/* Of all hosts. It is never closed, and known by its inode. */
static struct {
    int fd;
    dev_t device;
    ino_t inode;
} mark = {-1, 0, 0};

static unsigned made = 1; /* how many descriptors there have been, and one */

static bool is_mark_there(void)
{
    struct stat status;
    return mark.fd != -1 && fstat(mark.fd, &status) == 0 && status.st_dev == mark.device &&
           status.st_ino == mark.inode;
}

static void make_mark(void)
{
    struct stat status = {0};
    mark.fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    fstat(mark.fd, &status);
    mark.device = status.st_dev;
    mark.inode = status.st_ino;
}

/* 0, or an errno; EEXIST when it is there already. */
static int put_mark(int fd)
{
    struct epoll_event nothing = {0};
    return epoll_ctl(fd, EPOLL_CTL_ADD, mark.fd, &nothing) == 0 ? 0 : errno;
}

static bool is_marked(int fd)
{
    const int error = is_mark_there() ? put_mark(fd) : ENOENT;
    struct epoll_event nothing = {0};
    if (error == 0) epoll_ctl(fd, EPOLL_CTL_DEL, mark.fd, &nothing); /* not ours */
    return error == EEXIST;
}

/* Without a mark it is asked for again each time. */
int need_wait_fd(t_HOST *host, t_FUNCTION *function)
{
    if (host->wait_fds == made && is_marked(host->wait_fd)) return 0;
    host->wait_fd = ka_wait_fd(host->ka);
    if (host->wait_fd == -1) return fail_library(host, function);
    if (!is_mark_there()) make_mark();
    if (put_mark(host->wait_fd) == 0) made++;
    host->wait_fds = made;
    return 0;
}
