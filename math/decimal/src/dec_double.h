/* SPDX-License-Identifier: MIT
 *
 * The decimals of a double, as ecvt gives them in the C library of 32-bit x86 programs: the double is scaled to one
 * place before the point in 64 significant bits, rounded to double, and that is rounded to decimals. Integers and
 * t_EXTENDED only, so no locale, no rounding mode of the C library, and no memory is used. */
#ifndef KA_DEC_DOUBLE_H
#define KA_DEC_DOUBLE_H

#include "extended.h"

/* 0.ddd... * 10^point: as many decimals as were asked for, the first not 0. Zero is 0.0 * 10^1. */
struct t_DECIMALS {
    uint64_t digits;
    int point;
};

constexpr int dec_power_count = 310; /* ten to the power of 309 is above every double */

/* Powers of ten, each the product of the one before and 10. Those above 10^27 are not exact: each rounding counts. */
struct t_POWERS {
    t_EXTENDED of[dec_power_count];
};

constexpr t_POWERS dec_make_powers()
{
    t_POWERS powers = {};
    powers.of[0] = ext_from(1);
    for (int i = 1; i < dec_power_count; i++)
        powers.of[i] = ext_mul(powers.of[i - 1], ext_from(10));
    return powers;
}

/* A copy for each source that uses it: one that is shared would be a unique symbol, which keeps a library loaded. */
static constexpr t_POWERS dec_powers = dec_make_powers();

/* A power of ten that is not above 2^exponent, exponent not negative: log10(2) is a little more than 1233 / 4096. */
constexpr int dec_power_below(int exponent)
{
    return exponent * 1233 / 4096;
}

/* magnitude / 10^power, 1.0 to 10.0. */
struct t_SCALED {
    double value;
    int power;
};

static inline t_SCALED dec_scale(double magnitude)
{
    constexpr t_EXTENDED one = ext_from(1);
    constexpr t_EXTENDED least = ext_from(1e-307);
    t_EXTENDED x = ext_from(magnitude);
    int exponent = static_cast<int>(std::bit_cast<uint64_t>(magnitude) >> (DBL_MANT_DIG - 1)) + DBL_MIN_EXP - 2;
    int power = 0;
    if (magnitude < 1e-307) { /* the powers for these would leave the range of double */
        x = ext_div(x, least);
        power = -307;
        exponent = -1;
    }
    if (ext_less(x, one)) {
        int up = dec_power_below(-exponent - 1) + 1;
        while (ext_less(ext_mul(x, dec_powers.of[up]), one))
            up++;
        return {ext_to_double(ext_mul(x, dec_powers.of[up])), power - up};
    }
    int down = dec_power_below(exponent);
    while (!ext_less(x, dec_powers.of[down + 1]))
        down++;
    return {ext_to_double(ext_div(x, dec_powers.of[down])), down};
}

/* scaled * 10^(count - 1), rounded to the nearest integer, of two equally near the even one. Exact: the 53 bits of
   scaled times the power of five are taken in two halves; the power of two and the exponent are the shift, 35 or
   more. count is 2 to 15. */
inline uint64_t dec_round_scaled(double scaled, int count)
{
    constexpr int half_bits = 27;
    constexpr uint64_t half_mask = (uint64_t{1} << half_bits) - 1;
    uint64_t five = 1;
    for (int i = 1; i < count; i++)
        five *= 5;
    const uint64_t word = std::bit_cast<uint64_t>(scaled);
    const int exponent = static_cast<int>(word >> (DBL_MANT_DIG - 1)) + DBL_MIN_EXP - 2;
    const uint64_t bits = (word & ((uint64_t{1} << (DBL_MANT_DIG - 1)) - 1)) | uint64_t{1} << (DBL_MANT_DIG - 1);

    const uint64_t low = (bits & half_mask) * five;
    const uint64_t high = (bits >> half_bits) * five + (low >> half_bits);
    const int shift = DBL_MANT_DIG - 1 - exponent - (count - 1);
    const uint64_t whole = high >> (shift - half_bits);
    const uint64_t rest = ((high << half_bits) | (low & half_mask)) & ((uint64_t{1} << shift) - 1);
    const uint64_t half = uint64_t{1} << (shift - 1);
    return rest > half || (rest == half && whole % 2 != 0) ? whole + 1 : whole;
}

/* magnitude finite and not negative, count 2 to 15. */
static inline t_DECIMALS dec_find_decimals(double magnitude, int count)
{
    if (magnitude == 0) return {0, 1};
    const t_SCALED scaled = dec_scale(magnitude);
    uint64_t limit = 1;
    for (int i = 0; i < count; i++)
        limit *= 10;
    const uint64_t digits = dec_round_scaled(scaled.value, count);
    if (digits == limit) return {limit / 10, scaled.power + 2}; /* 10.0, or what rounds to it */
    return {digits, scaled.power + 1};
}
#endif
