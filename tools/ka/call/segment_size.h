// SPDX-License-Identifier: MIT
//
// How large the segment of a call must be.
#ifndef KA_TOOL_CALL_SEGMENT_SIZE_H
#define KA_TOOL_CALL_SEGMENT_SIZE_H

#include "ka/caller.h"
#include "one_call.h"

// Makes options.segment_bytes big enough for the call and a scratch area of options.scratch_bytes; true when it was
// too small.
bool make_room(ka_options &options, const Invocation &invocation);

#endif
