// SPDX-License-Identifier: MIT
//
// The right results of the decimal operations, computed with whole numbers of any length and stated from the meaning
// of each operation. Slow and short; shares no code with the library. An operand is a record as the library takes it,
// with 0 to 8 digits; its value is a whole number of units of a power of 100.
#pragma once

#include <boost/multiprecision/cpp_int.hpp>
#include <vector>

#include "ka/decimal.h"

namespace model {

using Int = boost::multiprecision::cpp_int;

inline constexpr int base = DEC_BASE;

struct Outcome {
    int code;
    t_DECIMAL record;
};

t_DECIMAL record(int exp, int pos, const std::vector<int> &digits);
t_DECIMAL null_record();
// Any header, whether it makes sense or not, over 8 equal bytes.
t_DECIMAL filled(int exp, int pos, int ndgts, int byte);

inline bool is_null(const t_DECIMAL &x)
{
    return x.dec_pos == DEC_NULL;
}
inline bool is_zero(const t_DECIMAL &x)
{
    return x.dec_ndgts == 0;
}
inline bool is_negative(const t_DECIMAL &x)
{
    return x.dec_pos == DEC_NEGATIVE;
}

// First and last digit not zero, or no digits at all; the exponent in range.
bool is_normal(const t_DECIMAL &x);

// Two nulls are the same whatever else they hold; bytes past the digits in use do not count.
bool same(const t_DECIMAL &a, const t_DECIMAL &b);

Int power(int number, int exponent);

// The magnitude of x in units of 100^exponent; what is below one unit is cut off.
Int in_units(const t_DECIMAL &x, int exponent);

// The normal form of units * 100^exponent: cut to nine base-100 digits, then rounded half up to eight, and clamped to
// the exponents of a record. Zero is positive.
Outcome normal(int pos, Int units, int exponent);

// The normaliser: an accumulator of up to nine digits with one more in front when carry is 1 or more.
Outcome round(int exp, int pos, const std::vector<int> &digits, int carry);

Outcome add(const t_DECIMAL &a, const t_DECIMAL &b);
Outcome subtract(const t_DECIMAL &a, const t_DECIMAL &b);
int compare(const t_DECIMAL &a, const t_DECIMAL &b);
t_DECIMAL change_sign(const t_DECIMAL &x);

Outcome multiply(const t_DECIMAL &a, const t_DECIMAL &b);

// False for a divisor that begins with two zero digits: its quotient has no meaning.
bool can_divide_by(const t_DECIMAL &b);
// Any a, and a b of which can_divide_by is true.
Outcome divide(const t_DECIMAL &a, const t_DECIMAL &b);

// x with that many decimals after the point: rounded, which leaves some zero digits, or cut.
Outcome to_places(const t_DECIMAL &x, int places);
Outcome cut_to_places(const t_DECIMAL &x, int places);

} // namespace model
