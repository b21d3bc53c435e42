// SPDX-License-Identifier: MIT
//
// From what the command line says to a call that can be made. Throws Malformed and Refused.
#ifndef KA_TOOL_PREPARATION_H
#define KA_TOOL_PREPARATION_H

#include <vector>

#include "calling.h"
#include "invocation.h"
#include "tables.h"

// The functions' prototypes decide what an argument is.
Invocation prepare(const CallWishes &wishes, const std::vector<Function> &functions);

// The arguments stand for themselves; prototypes only name what comes back.
Invocation prepare_raw(const CallWishes &wishes, const std::vector<Function> &functions);

#endif
