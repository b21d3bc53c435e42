/* SPDX-License-Identifier: MIT
 *
 * Numbers of 64 significant bits, as the x86 processors have them in long double: each operation gives the nearest
 * one, of two equally near the even one. Positive numbers and zero only. Where long double is another format, the
 * same is done in integers, with exponents that never run out; KA_SOFT_EXTENDED chooses this form anywhere. The
 * doubles that come out are the same. Tests: Extended.* compare the two. */
#ifndef KA_EXTENDED_H
#define KA_EXTENDED_H

#include <bit>
#include <float.h>
#include <stdint.h>

#if LDBL_MANT_DIG == 64 && !defined(KA_SOFT_EXTENDED)

using t_EXTENDED = long double;

constexpr t_EXTENDED ext_from(double value)
{
    return value;
}

constexpr t_EXTENDED ext_add(t_EXTENDED a, t_EXTENDED b)
{
    return a + b;
}

constexpr t_EXTENDED ext_mul(t_EXTENDED a, t_EXTENDED b)
{
    return a * b;
}

constexpr t_EXTENDED ext_div(t_EXTENDED a, t_EXTENDED b)
{
    return a / b;
}

constexpr bool ext_less(t_EXTENDED a, t_EXTENDED b)
{
    return a < b;
}

constexpr double ext_to_double(t_EXTENDED x)
{
    return static_cast<double>(x);
}

#else

/* bits * 2^exponent. The highest bit is set, or all are zero. */
struct t_EXTENDED {
    uint64_t bits;
    int exponent;
};

__extension__ typedef unsigned __int128 t_WIDE;

constexpr int ext_bits = 64;
constexpr int ext_double_bits = DBL_MANT_DIG - 1; /* stored: the highest one is not */
constexpr uint64_t ext_highest_bit = uint64_t{1} << (ext_bits - 1);

/* wide without its last count bits, 1 to 127, rounded. */
constexpr t_WIDE ext_cut(t_WIDE wide, int count)
{
    const t_WIDE kept = wide >> count;
    const t_WIDE rest = wide - (kept << count);
    const t_WIDE half = t_WIDE{1} << (count - 1);
    const bool up = rest > half || (rest == half && (kept & 1) != 0);
    return up ? kept + 1 : kept;
}

/* wide * 2^exponent, wide being 2^64 or more. */
constexpr t_EXTENDED ext_round(t_WIDE wide, int exponent)
{
    const int count = ext_bits - __builtin_clzll(static_cast<uint64_t>(wide >> ext_bits));
    const t_WIDE kept = ext_cut(wide, count);
    if (kept >> ext_bits != 0) return {ext_highest_bit, exponent + count + 1};
    return {static_cast<uint64_t>(kept), exponent + count};
}

constexpr t_EXTENDED ext_from(double value)
{
    const uint64_t word = std::bit_cast<uint64_t>(value);
    const int biased = static_cast<int>(word >> ext_double_bits);
    uint64_t bits = word & ((uint64_t{1} << ext_double_bits) - 1);
    if (biased > 0) bits |= uint64_t{1} << ext_double_bits;
    if (bits == 0) return {0, 0};
    const int left = __builtin_clzll(bits);
    return {bits << left, (biased > 0 ? biased : 1) + DBL_MIN_EXP - 2 - ext_double_bits - left};
}

constexpr t_EXTENDED ext_add(t_EXTENDED a, t_EXTENDED b)
{
    if (a.bits == 0) return b;
    if (b.bits == 0) return a;
    const t_EXTENDED high = a.exponent < b.exponent ? b : a;
    const t_EXTENDED low = a.exponent < b.exponent ? a : b;
    const int distance = high.exponent - low.exponent;
    if (distance > ext_bits + 1) return high; /* less than half a unit of its last bit */
    /* 63 bits below those of high; what low has further down is one bit more. */
    const t_WIDE wide = t_WIDE{low.bits} << (ext_bits - 1);
    const t_WIDE shifted = wide >> distance;
    const t_WIDE further = shifted << distance == wide ? 0 : 1;
    return ext_round((t_WIDE{high.bits} << (ext_bits - 1)) + (shifted | further), high.exponent - (ext_bits - 1));
}

constexpr t_EXTENDED ext_mul(t_EXTENDED a, t_EXTENDED b)
{
    if (a.bits == 0 || b.bits == 0) return {0, 0};
    return ext_round(t_WIDE{a.bits} * b.bits, a.exponent + b.exponent);
}

/* b not zero. The quotient has 64 bits, and what is left decides the rounding. That is never half of b: twice the
   quotient would be an odd number of 65 bits, and divide a. Nor are all bits set when it rounds up: a / b is at most
   2 - 2^-63, which is exact, or below 1 by more than 2^-64. */
constexpr t_EXTENDED ext_div(t_EXTENDED a, t_EXTENDED b)
{
    if (a.bits == 0) return {0, 0};
    const int shift = a.bits < b.bits ? ext_bits : ext_bits - 1;
    const t_WIDE dividend = t_WIDE{a.bits} << shift;
    /* NOLINTNEXTLINE(clang-analyzer-core.DivideZero): the tool cannot see what is in a table */
    const uint64_t quotient = static_cast<uint64_t>(dividend / b.bits);
    const uint64_t rest = static_cast<uint64_t>(dividend % b.bits);
    return {rest > b.bits - rest ? quotient + 1 : quotient, a.exponent - b.exponent - shift};
}

constexpr bool ext_less(t_EXTENDED a, t_EXTENDED b)
{
    if (a.bits == 0 || b.bits == 0 || a.exponent == b.exponent) return a.bits < b.bits;
    return a.exponent < b.exponent;
}

/* The word of a double is (biased - 1) * 2^52 + its bits, the highest included, also below the smallest normal one;
   a carry out of the bits does the right thing by itself. */
constexpr double ext_to_double(t_EXTENDED x)
{
    const int exponent = x.exponent + ext_bits - (DBL_MIN_EXP - 1); /* 1 is the smallest of a normal double */
    const int biased = exponent < 1 ? 1 : exponent;
    const int count = ext_bits - DBL_MANT_DIG + biased - exponent;
    if (x.bits == 0 || count > ext_bits) return 0;
    if (biased >= 2 * DBL_MAX_EXP - 1) return std::bit_cast<double>(uint64_t{2 * DBL_MAX_EXP - 1} << ext_double_bits);
    const uint64_t bits = static_cast<uint64_t>(ext_cut(x.bits, count));
    return std::bit_cast<double>((static_cast<uint64_t>(biased - 1) << ext_double_bits) + bits);
}

#endif
#endif
