// SPDX-License-Identifier: MIT
//
// The backtrace of a host when it dies or is late: for ka_options.inspector.
#ifndef KA_TOOL_CALL_BACKTRACE_H
#define KA_TOOL_CALL_BACKTRACE_H

#include "ka/caller.h"

// Writes the address of the fault, whether it is a stack overflow, and a line for each frame: function, file and line
// where the module was compiled with them, else the function and the distance from it, else the file and the address
// in it. Uses no user data.
ka_inspector *backtrace_inspector();

#endif
