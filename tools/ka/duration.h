// SPDX-License-Identifier: MIT
//
// Times as people write them: 10s 500ms 2m 1h, 1.5s; a number alone is seconds.
#ifndef KA_TOOL_DURATION_H
#define KA_TOOL_DURATION_H

#include <chrono>
#include <optional>
#include <string>

// Nothing when it is no time, or one below a millisecond or above ten thousand hours.
std::optional<std::chrono::milliseconds> read_duration(const std::string &text);

#endif
