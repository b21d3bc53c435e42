// SPDX-License-Identifier: MIT
//
// Finding in the table of explanations.
#ifndef KA_TOOL_EXPLAIN_FIND_H
#define KA_TOOL_EXPLAIN_FIND_H

#include <string>
#include <vector>

#include "rows.h"

// What explains a line: a number, a name, or a message with other text around it. The most specific comes first.
std::vector<const Explanation *> look_up(const std::string &line);
// Whether it is a number, alone or as "return code 8".
bool may_be_own_code(const std::string &text);

#endif
