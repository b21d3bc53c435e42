// SPDX-License-Identifier: MIT
//
// Times as people write them: 10s 500ms 2m 1h, 1.5s; a number alone is seconds.
#ifndef KA_TOOL_BASE_DURATION_H
#define KA_TOOL_BASE_DURATION_H

#include <chrono>
#include <optional>
#include <string>

// Nothing when it is not a time, or one below a millisecond or above 500 hours, which fit an int32_t of milliseconds.
std::optional<std::chrono::milliseconds> read_duration(const std::string &text);

// What is wrong with it, for a message that begins with what takes it; empty when nothing is.
std::string fault_of_duration(const std::string &text);

#endif
