// SPDX-License-Identifier: MIT
//
// The orders of ka shell: lines that begin with a colon.
#ifndef KA_TOOL_SHELL_ORDERS_H
#define KA_TOOL_SHELL_ORDERS_H

#include <string>
#include <vector>

#include "session.h"

// Carries out an order, and shows the result; an exit status. words has one at least. Throws Malformed.
bool is_order(const Words &words);
int run_order(Session &session, const Words &words);

// ":list" and the others; and the lines that explain what can be typed, indented or not.
std::vector<std::string> order_names();
std::string order_help(const std::string &indentation);

#endif
