// SPDX-License-Identifier: MIT
//
// The right results of digit strings, of the fixed-width layout and of the reading of text.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "model/exact.h"

namespace model {

struct Digits {
    std::string text;
    std::optional<int> decpt; // nothing: left unwritten
    std::optional<int> sign;
};

// total: count significant decimals in all. after_point: count decimals after the point.
enum class Count { total, after_point };

// The decimals that the record holds, without the leading zero of a first digit below 10, and how many of them are
// before the point.
std::string decimals(const t_DECIMAL &x);
int decimals_before_point(const t_DECIMAL &x);

Digits digit_string(const t_DECIMAL &x, int count, Count meaning);

// The length characters of the field; length 0 or more.
std::string layout(const t_DECIMAL &x, int length, int places);

Outcome parse(std::string_view field);

} // namespace model
