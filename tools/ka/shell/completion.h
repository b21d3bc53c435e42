// SPDX-License-Identifier: MIT
//
// What the tab key offers in ka shell: functions, orders and variables.
#ifndef KA_TOOL_SHELL_COMPLETION_H
#define KA_TOOL_SHELL_COMPLETION_H

#include "editor.h"
#include "session.h"

// before is the line up to the cursor. Where an argument belongs, the hint shows what the function takes, and what
// its author has written about it.
Completion complete_line(const Session &session, const std::string &before);

#endif
