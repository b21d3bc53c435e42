/* SPDX-License-Identifier: MIT
 *
 * The end of what a host has written on its standard error. A thread reads the pipe as long as the ring is open, so
 * the host never waits for anybody; what is older than the room is dropped. */
#ifndef KA_CALLER_STDERR_RING_H
#define KA_CALLER_STDERR_RING_H

#include <stdint.h>

struct t_STDERR_RING;

/* Null, with an errno in *error, when there is no memory, descriptor or thread. *writing_end is the caller's, to be
   given to the host and closed: the ring itself has no descriptor in this process's table. */
t_STDERR_RING *open_stderr_ring(int32_t room, int *writing_end, int *error);

/* The rest of the pipe is read; how many bytes that makes since the ring was opened. */
int64_t look_at_stderr_ring(t_STDERR_RING *ring);

/* The last bytes, at most size of them; how many. First the rest of the pipe is read. */
int32_t read_stderr_ring(t_STDERR_RING *ring, char *buffer, int32_t size);

/* ring may be null. A process that still writes gets an error for it. */
void close_stderr_ring(t_STDERR_RING *ring);

#endif
