/* SPDX-License-Identifier: MIT
 *
 * What a segment looks like from its creation until it is marked for removal, and the removal of those whose creator
 * died in between. */
#ifndef KA_CALLER_ABANDONED_H
#define KA_CALLER_ABANDONED_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include "wire/annex.h"

/* Its size is SIZE_MARK above a multiple of SIZE_STEP. */
enum : size_t { SIZE_STEP = wire::ANNEX_STEP, SIZE_MARK = wire::ANNEX_MARK };

key_t new_segment_key(uint64_t *random);

/* Asked by a child that waits for its start, as its caller dies; and by every ka_open, with 0: for those of any dead
   creator, which is how the segment goes of a caller and a host that were both killed. Async-signal-safe. */
void remove_abandoned_segments(pid_t dead_creator);

#endif
