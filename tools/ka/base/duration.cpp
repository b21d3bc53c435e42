// SPDX-License-Identifier: MIT
//
// See duration.h.
#include "duration.h"

#include <charconv>

std::optional<std::chrono::milliseconds> read_duration(const std::string &text)
{
    struct Unit {
        const char *name;
        double milliseconds;
    };
    static constexpr Unit units[] = {{"", 1e3}, {"s", 1e3}, {"ms", 1}, {"m", 60e3}, {"h", 3600e3}};
    double number = 0;
    const char *end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    if (read.ec != std::errc()) return std::nullopt;
    for (const Unit &unit : units) {
        if (std::string(read.ptr, end) != unit.name) continue;
        const double milliseconds = number * unit.milliseconds;
        if (!(milliseconds >= 1 && milliseconds <= 500 * 3600e3)) return std::nullopt;
        return std::chrono::milliseconds(static_cast<int64_t>(milliseconds));
    }
    return std::nullopt;
}

std::string fault_of_duration(const std::string &text)
{
    return read_duration(text) ? "" : "takes a time from 1ms to 500h, such as 10s, not \"" + text + "\"";
}
