/* SPDX-License-Identifier: MIT
 *
 * See ring.h. */
#include "ring.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "attendant.h"

/* Larger than usual, so that the host seldom waits for a busy attendant; and small enough for hundreds of hosts,
   since all pipes of a user together may have 64 MiB. One look takes no more than that, and leaves the attendant to
   others then. */
enum { PIPE_BYTES = 1 << 18 };

struct t_RING {
    t_WATCH watch; /* of the reading end */
    pthread_mutex_t lock;
    bool ended;      /* all writing ends are closed */
    int32_t room;    /* size of bytes */
    int64_t written; /* in all; the last ones stand in bytes, the next at written % room */
    char *bytes;     /* allocated with the record */
};

/* ---- Filling --------------------------------------------------------------------------------------------------- */

/* Reads up to the end of bytes at most. 0 when there is nothing to be read. */
static int32_t read_some(t_RING *ring)
{
    const int32_t at = static_cast<int32_t>(ring->written % ring->room);
    const ssize_t length = read(ring->watch.fd, ring->bytes + at, static_cast<size_t>(ring->room - at));
    if (length == 0) ring->ended = true;
    if (length <= 0) return 0;
    ring->written += length;
    return static_cast<int32_t>(length);
}

static void drain(t_RING *ring)
{
    int32_t taken = 0;
    int32_t length = 0;
    do {
        length = read_some(ring);
        taken += length;
    } while (length > 0 && taken < PIPE_BYTES);
}

/* A pipe at its end stays readable, and would keep the attendant busy. */
static void attend_pipe(void *argument)
{
    t_RING *ring = static_cast<t_RING *>(argument);
    pthread_mutex_lock(&ring->lock);
    drain(ring);
    const bool ended = ring->ended;
    pthread_mutex_unlock(&ring->lock);
    if (ended) attendant_forget(&ring->watch);
}

/* ---- Opening and closing --------------------------------------------------------------------------------------- */

/* The reading end alone does not block. The writing end is moved above the standard descriptors: one of them may be
   closed in the program, and is the one that the host shall have. */
static int open_pipe(int ends[2])
{
    if (pipe2(ends, O_CLOEXEC) != 0) return errno;
    const int moved = fcntl(ends[1], F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    close(ends[1]);
    ends[1] = moved;
    if (moved == -1) {
        close(ends[0]);
        return error;
    }
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    fcntl(ends[1], F_SETPIPE_SZ, PIPE_BYTES); /* a smaller one will do */
    return 0;
}

static t_RING *allocate_ring(int32_t room)
{
    t_RING *ring = static_cast<t_RING *>(calloc(1, sizeof *ring + static_cast<size_t>(room)));
    if (!ring) return nullptr;
    ring->bytes = reinterpret_cast<char *>(ring + 1);
    ring->room = room;
    ring->watch.fd = -1;
    ring->watch.on_readable = attend_pipe;
    ring->watch.argument = ring;
    pthread_mutex_init(&ring->lock, nullptr);
    return ring;
}

static void free_ring(t_RING *ring)
{
    if (ring->watch.fd != -1) close(ring->watch.fd);
    pthread_mutex_destroy(&ring->lock);
    free(ring);
}

t_RING *open_ring(int32_t room, int *writing_end, int *error)
{
    int ends[2];
    t_RING *ring = allocate_ring(room);
    *error = ring ? open_pipe(ends) : ENOMEM;
    if (*error == 0) {
        ring->watch.fd = ends[0];
        *writing_end = ends[1];
        *error = attendant_watch(&ring->watch);
        if (*error == 0) return ring;
        close(ends[1]);
    }
    if (ring) free_ring(ring);
    return nullptr;
}

void close_ring(t_RING *ring)
{
    if (!ring) return;
    attendant_forget(&ring->watch);
    free_ring(ring);
}

/* ---- Reading --------------------------------------------------------------------------------------------------- */

int32_t read_ring(t_RING *ring, char *buffer, int32_t size)
{
    pthread_mutex_lock(&ring->lock);
    drain(ring);
    const int64_t kept = ring->written < ring->room ? ring->written : ring->room;
    const int32_t count = static_cast<int32_t>(size < kept ? size : kept);
    const int32_t from = static_cast<int32_t>((ring->written - count) % ring->room);
    const int32_t first = count < ring->room - from ? count : ring->room - from;
    memcpy(buffer, ring->bytes + from, static_cast<size_t>(first));
    memcpy(buffer + first, ring->bytes, static_cast<size_t>(count - first));
    pthread_mutex_unlock(&ring->lock);
    return count;
}
