// SPDX-License-Identifier: MIT
//
// The right results of packed fields and of conversions between records and binary numbers.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "model/exact.h"

namespace model {

// The packed field of length bytes. A length of 1 must not need rounding up.
std::vector<uint8_t> packed(const t_DECIMAL &x, int length);
t_DECIMAL unpacked(const std::vector<uint8_t> &field);

t_DECIMAL from_integer(int64_t value);

// x truncated toward zero, or nothing when that is not a 32-bit integer.
std::optional<int32_t> to_int32(const t_DECIMAL &x);

// The record of 0.ddd... * 10^decpt, clamped.
Outcome from_decimals(std::string_view digits, int decpt, bool negative);

// From the decimals that ecvt gives in 32-bit programs (model/floating.h). The value must be finite.
Outcome from_double(double value, int ndigit);

// The double nearest to m * 10^exponent10, m not negative; normal doubles only. The libraries' own conversions are no
// reference: std::from_chars misses the nearest double in 32-bit programs.
double nearest_double(const Int &m, int exponent10);

// The double of the first digits of x: Horner's scheme and the scaling in 64-bit significands, rounded once more at
// the end. Exponents of a normal record only.
double to_double(const t_DECIMAL &x, int digits);
float to_float(const t_DECIMAL &x);

} // namespace model
