// SPDX-License-Identifier: MIT
//
// A command line given as one word, split as a shell splits it.
#ifndef KA_TOOL_BASE_COMMAND_LINE_H
#define KA_TOOL_BASE_COMMAND_LINE_H

#include <optional>
#include <string>
#include <vector>

// Blanks separate words; '...', "..." and \ hold characters together. Nothing is expanded. Nothing when a quote is
// open or there is no word.
std::optional<std::vector<std::string>> split_command_line(const std::string &line);

// What is wrong with it; empty when it is good.
std::string fault_of_command_line(const std::string &line);

#endif
