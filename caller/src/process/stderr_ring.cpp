/* SPDX-License-Identifier: MIT
 *
 * See stderr_ring.h. Each ring has a thread, and the thread has a table of descriptors to itself: the reading end of
 * the pipe is open there alone. So the program, which may close all that it does not know, cannot close it, and
 * nothing that the program opens can get its number while it is read. The thread is woken by a signal, which is
 * blocked in it and comes through a descriptor. */
#include "stderr_ring.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "base/fd.h"
#include "base/thread.h"

/* Larger than usual, so that the host seldom waits for a busy processor; and small enough for hundreds of hosts,
   since all pipes of a user together may have 64 MiB. One look takes no more than that. */
enum { PIPE_BYTES = 1 << 18 };

enum {
    WAKING_SIGNAL = SIGURG, /* ignored by default */
    STACK_BYTES = 1 << 17,
    PATIENCE_S = 10 /* for the thread, which needs a processor and nothing else */
};

struct t_STDERR_RING {
    int fd; /* the reading end; from ready on a number in the thread's table */
    pthread_t thread;
    pthread_mutex_t lock; /* guards all below */
    pthread_cond_t changed;
    bool ready;     /* error is known, and the thread needs nothing of this process's table any more */
    int error;      /* why the thread cannot read, or 0 */
    bool stopping;  /* the thread is to end */
    bool ended;     /* all writing ends are closed */
    uint32_t asked; /* looks into the pipe that were asked for */
    uint32_t looked;
    int32_t room;    /* size of bytes */
    int64_t written; /* in all; the last ones are in bytes, the next at written % room */
    char *bytes;     /* allocated with the record */
};

/* ---- Filling --------------------------------------------------------------------------------------------------- */

/* Reads up to the end of bytes at most. 0 when there is nothing to be read. */
static int32_t read_some(t_STDERR_RING *ring)
{
    const int32_t at = static_cast<int32_t>(ring->written % ring->room);
    const ssize_t length = read(ring->fd, ring->bytes + at, static_cast<size_t>(ring->room - at));
    if (length == 0) ring->ended = true;
    if (length <= 0) return 0;
    ring->written += length;
    return static_cast<int32_t>(length);
}

static void drain(t_STDERR_RING *ring)
{
    int32_t taken = 0;
    int32_t length = 0;
    do {
        length = read_some(ring);
        taken += length;
    } while (length > 0 && taken < PIPE_BYTES);
}

/* ---- The thread ------------------------------------------------------------------------------------------------ */

/* A table of its own with nothing but the pipe in it: copies of the program's descriptors would hold its files open.
   The end of the pipe that is kept lies above the standard descriptors. */
static int move_apart(int kept)
{
    const bool is_apart = syscall(SYS_close_range, static_cast<unsigned>(kept) + 1, ~0u, CLOSE_RANGE_UNSHARE) == 0 ||
                          unshare(CLONE_FILES) == 0;
    return is_apart ? close_all_but(kept, -1) : errno;
}

static int open_waking(void)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, WAKING_SIGNAL);
    return signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

static void report_ready(t_STDERR_RING *ring, int error)
{
    pthread_mutex_lock(&ring->lock);
    ring->error = error;
    ring->ready = true;
    pthread_cond_broadcast(&ring->changed);
    pthread_mutex_unlock(&ring->lock);
}

/* A pipe at its end stays readable, and would keep the thread busy. False when it is to end. */
static bool attend(t_STDERR_RING *ring, int waking_fd)
{
    struct pollfd fds[] = {{ring->ended ? -1 : ring->fd, POLLIN, 0}, {waking_fd, POLLIN, 0}};
    poll(fds, 2, -1);
    struct signalfd_siginfo signal;
    if ((fds[1].revents & POLLIN) && read(waking_fd, &signal, sizeof signal) < 0) return true; /* taken already */
    pthread_mutex_lock(&ring->lock);
    drain(ring);
    ring->looked = ring->asked;
    pthread_cond_broadcast(&ring->changed);
    const bool goes_on = !ring->stopping;
    pthread_mutex_unlock(&ring->lock);
    return goes_on;
}

static void *collect(void *argument)
{
    t_STDERR_RING *ring = static_cast<t_STDERR_RING *>(argument);
    const int apart_error = move_apart(ring->fd);
    if (apart_error != 0) {
        report_ready(ring, apart_error);
        return nullptr;
    }
    const int waking_fd = open_waking();
    report_ready(ring, waking_fd == -1 ? errno : 0);
    while (waking_fd != -1 && attend(ring, waking_fd))
        ;
    close(ring->fd); /* before the thread is seen to have ended: whoever writes then gets an error */
    return nullptr;
}

/* ---- Waiting for it; lock is held ------------------------------------------------------------------------------ */

static struct timespec end_of_patience(void)
{
    struct timespec until;
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += PATIENCE_S;
    return until;
}

static void wake(const t_STDERR_RING *ring)
{
    pthread_kill(ring->thread, WAKING_SIGNAL);
}

static void await_ready(t_STDERR_RING *ring)
{
    const struct timespec until = end_of_patience();
    int error = 0;
    while (error == 0 && !ring->ready)
        error = pthread_cond_clockwait(&ring->changed, &ring->lock, CLOCK_MONOTONIC, &until);
}

static void await_look(t_STDERR_RING *ring)
{
    const struct timespec until = end_of_patience();
    const uint32_t wanted = ++ring->asked;
    int error = 0;
    wake(ring);
    while (error == 0 && static_cast<int32_t>(ring->looked - wanted) < 0)
        error = pthread_cond_clockwait(&ring->changed, &ring->lock, CLOCK_MONOTONIC, &until);
}

/* ---- Opening and closing --------------------------------------------------------------------------------------- */

/* Moves an end above the standard descriptors: one of them may be closed in the program, and is the one that the host
   shall have, or that the thread could not keep alone. */
static int move_up(int *fd)
{
    const int moved = fcntl(*fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    close(*fd);
    *fd = moved;
    return moved == -1 ? error : 0;
}

/* The reading end alone does not block. */
static int open_pipe(int ends[2])
{
    if (pipe2(ends, O_CLOEXEC) != 0) return errno;
    int error = move_up(&ends[0]);
    const int second_error = move_up(&ends[1]);
    if (error == 0) error = second_error;
    if (error != 0) {
        close_fd(&ends[0]);
        close_fd(&ends[1]);
        return error;
    }
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    fcntl(ends[1], F_SETPIPE_SZ, PIPE_BYTES); /* a smaller one will do */
    return 0;
}

static t_STDERR_RING *allocate_ring(int32_t room)
{
    t_STDERR_RING *ring = static_cast<t_STDERR_RING *>(calloc(1, sizeof *ring + static_cast<size_t>(room)));
    if (!ring) return nullptr;
    ring->bytes = reinterpret_cast<char *>(ring + 1);
    ring->room = room;
    pthread_mutex_init(&ring->lock, nullptr);
    pthread_cond_init(&ring->changed, nullptr);
    return ring;
}

static void free_ring(t_STDERR_RING *ring)
{
    pthread_cond_destroy(&ring->changed);
    pthread_mutex_destroy(&ring->lock);
    free(ring);
}

/* 0 or an errno; ETIMEDOUT when the thread did not get so far, and may still do so. */
static int start_thread(t_STDERR_RING *ring)
{
    const int error = create_thread_without_signals(&ring->thread, STACK_BYTES, collect, ring);
    if (error != 0) return error;
    pthread_mutex_lock(&ring->lock);
    await_ready(ring);
    const int result = ring->ready ? ring->error : ETIMEDOUT;
    pthread_mutex_unlock(&ring->lock);
    if (result == ETIMEDOUT)
        pthread_detach(ring->thread);
    else if (result != 0)
        pthread_join(ring->thread, nullptr);
    return result;
}

/* A thread that is late keeps what it was given. */
t_STDERR_RING *open_stderr_ring(int32_t room, int *writing_end, int *error)
{
    int ends[2];
    t_STDERR_RING *ring = allocate_ring(room);
    *error = ring ? open_pipe(ends) : ENOMEM;
    if (*error == 0) {
        ring->fd = ends[0];
        *error = start_thread(ring);
        if (*error == ETIMEDOUT)
            ring = nullptr;
        else
            close(ends[0]); /* the thread has a copy, or has ended */
        if (*error != 0) close(ends[1]);
    }
    if (*error == 0) {
        *writing_end = ends[1];
        return ring;
    }
    if (ring) free_ring(ring);
    return nullptr;
}

/* A thread that does not end in time keeps its record. */
void close_stderr_ring(t_STDERR_RING *ring)
{
    if (!ring) return;
    pthread_mutex_lock(&ring->lock);
    ring->stopping = true;
    wake(ring);
    pthread_mutex_unlock(&ring->lock);
    const struct timespec until = end_of_patience();
    if (pthread_clockjoin_np(ring->thread, nullptr, CLOCK_MONOTONIC, &until) == 0)
        free_ring(ring);
    else
        pthread_detach(ring->thread);
}

/* ---- Reading --------------------------------------------------------------------------------------------------- */

int64_t look_at_stderr_ring(t_STDERR_RING *ring)
{
    pthread_mutex_lock(&ring->lock);
    await_look(ring);
    const int64_t written = ring->written;
    pthread_mutex_unlock(&ring->lock);
    return written;
}

int32_t read_stderr_ring(t_STDERR_RING *ring, char *buffer, int32_t size)
{
    pthread_mutex_lock(&ring->lock);
    await_look(ring);
    const int64_t kept = ring->written < ring->room ? ring->written : ring->room;
    const int32_t count = static_cast<int32_t>(size < kept ? size : kept);
    const int32_t from = static_cast<int32_t>((ring->written - count) % ring->room);
    const int32_t first = count < ring->room - from ? count : ring->room - from;
    memcpy(buffer, ring->bytes + from, static_cast<size_t>(first));
    memcpy(buffer + first, ring->bytes, static_cast<size_t>(count - first));
    pthread_mutex_unlock(&ring->lock);
    return count;
}
