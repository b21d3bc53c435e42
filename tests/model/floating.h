// SPDX-License-Identifier: MIT
//
// Floating point carried out in whole numbers.
#pragma once

#include <string>

#include "model/exact.h"

namespace model {

// m * 2^e, exact.
struct Binary {
    Int m;
    int e;
};

inline constexpr int extended_bits = 64;
inline constexpr int double_bits = 53;

// The nearest number of so many bits, of two equally near the one that ends in 0.
Binary rounded(const Binary &x, int bits);

// Results of extended_bits.
Binary times(const Binary &a, const Binary &b);
Binary over(const Binary &a, const Binary &b);

bool less(const Binary &a, const Binary &b);

Binary exact(double value);

// 0.ddd... * 10^point
struct Decimals {
    std::string text;
    int point;
};

// What ecvt does in 32-bit programs: it scales the magnitude to one place before the point, by a power of ten that it
// multiplies up step by step, all in 64-bit significands; stores that as a double; and prints the double, rounded
// half to even.
Decimals decimals_of(double magnitude, int count);

} // namespace model
