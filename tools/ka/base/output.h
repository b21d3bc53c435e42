// SPDX-License-Identifier: MIT
//
// Results, which go to standard output.
#ifndef KA_TOOL_BASE_OUTPUT_H
#define KA_TOOL_BASE_OUTPUT_H

#include <string>

// Writes them all. Returns status; when they cannot be written, that of bad usage, after a line on standard error
// which begins with place.
int write_results(const std::string &text, int status, const std::string &place = "");

#endif
