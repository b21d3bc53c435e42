// SPDX-License-Identifier: MIT
//
// The REAL that a number in text means, by the meaning alone: the record nearest to its value, ties away from zero.
#pragma once

#include <string>
#include <string_view>

#include "model/draw.h"
#include "model/exact.h"

namespace model {

struct Nearest {
    bool in_range;
    bool exact;
    t_DECIMAL record; // when in range
};

// number: [sign] decimals with at most one point among them [e [sign] decimals], and nothing else.
Nearest nearest(std::string_view number);

// Such a number of 1 to 60 decimals, its exponent not above 999: ties, near ties, runs of one decimal, values at both
// ends of the range.
std::string draw_number(Draw &draw);

} // namespace model
