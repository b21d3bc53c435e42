// SPDX-License-Identifier: MIT
//
// How long each of many calls took, and how it ended.
#ifndef KA_TOOL_CALL_TIMING_H
#define KA_TOOL_CALL_TIMING_H

#include <cstdint>
#include <string>
#include <vector>

#include "base/json.h"

class Timing {
public:
    void add(double milliseconds, int32_t return_code);
    size_t calls() const { return times_.size(); }
    size_t nonzero_calls() const { return nonzero_calls_; } // answered with another code than 0

    // Not for no calls at all.
    std::string text() const; // lines
    void add_to(JsonObject &json) const;

private:
    struct Summary;
    Summary summary() const;

    std::vector<double> times_;
    size_t nonzero_calls_ = 0;
};

#endif
