// SPDX-License-Identifier: MIT
//
// The integer form of the arithmetic in 64 significant bits beside the processor's own. All of math/decimal is in
// this program in that form, too.
#include <bit>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>

#include "dec_int.h"
#include "extended.h"
#include "model/doubles.h"
#include "model/notation.h"

#if LDBL_MANT_DIG == 64 // else there is nothing to compare with

using namespace model;

static_assert(std::is_class_v<t_EXTENDED>);

static long double hardware(t_EXTENDED x)
{
    return std::ldexp(static_cast<long double>(x.bits), x.exponent);
}

// In the one form that a value has.
static bool same(t_EXTENDED got, long double expected)
{
    return got.bits == 0 ? expected == 0 : got.bits >> 63 == 1 && hardware(got) == expected;
}

static std::string text_of(t_EXTENDED x)
{
    return std::to_string(x.bits) + " * 2^" + std::to_string(x.exponent);
}

// Highest bit set; at times few bits, or nearly all, or a tie for the double.
static uint64_t significand(Draw &draw)
{
    const uint64_t highest = uint64_t{1} << 63;
    switch (draw.below(6)) {
    case 0:
        return highest | draw.bits() << draw.between(1, 63);
    case 1:
        return ~uint64_t{0} << draw.below(63);
    case 2:
        return ~uint64_t{0} - static_cast<uint64_t>(draw.below(3000));
    case 3:
        return highest + static_cast<uint64_t>(draw.below(draw.one_in(2) ? 3 : 3000));
    case 4:
        return (highest | draw.bits() << 11) + 0x400 + static_cast<uint64_t>(draw.between(-1, 1));
    default:
        return highest | draw.bits();
    }
}

static t_EXTENDED drawn(Draw &draw, int exponent)
{
    if (draw.one_in(50)) return {0, 0};
    return {significand(draw), exponent};
}

TEST(Extended, operations_agree_with_the_processor)
{
    Draw draw;
    for (Rounds rounds(500000); rounds.more();) {
        const t_EXTENDED a = drawn(draw, draw.between(-200, 200));
        const int distance = draw.pick({draw.between(-1, 1), draw.between(62, 66), draw.between(-130, 130)});
        const t_EXTENDED b = drawn(draw, a.exponent + distance);
        const long double x = hardware(a);
        const long double y = hardware(b);
        ASSERT_TRUE(same(a, x));
        ASSERT_TRUE(same(ext_add(a, b), x + y))
            << text_of(a) << " + " << text_of(b) << ": " << text_of(ext_add(a, b));
        ASSERT_TRUE(same(ext_mul(a, b), x * y))
            << text_of(a) << " x " << text_of(b) << ": " << text_of(ext_mul(a, b));
        ASSERT_EQ(ext_less(a, b), x < y) << text_of(a) << " < " << text_of(b);
        if (b.bits == 0) continue;
        ASSERT_TRUE(same(ext_div(a, b), x / y))
            << text_of(a) << " / " << text_of(b) << ": " << text_of(ext_div(a, b));
    }
}

TEST(Extended, doubles_agree_with_the_processor)
{
    Draw draw;
    for (Rounds rounds(500000); rounds.more();) {
        // All, those about the smallest doubles, those about the largest.
        const int exponent =
            draw.pick({draw.between(-1200, 1100), draw.between(-1140, -1080), draw.between(955, 965)});
        const t_EXTENDED x = drawn(draw, exponent);
        const double stored = static_cast<double>(hardware(x));
        ASSERT_EQ(ext_to_double(x), stored) << text_of(x);
        const double of_a_kind = double_kinds[draw.below(double_kind_count)].draw(draw);
        const double about_the_least_normal = std::bit_cast<double>(draw.bits() >> 10);
        const double value = draw.one_in(2) ? of_a_kind : about_the_least_normal;
        ASSERT_TRUE(same(ext_from(value), static_cast<long double>(value))) << show(value);
    }
}

static double to_double_in_hardware(const t_DECIMAL &x, int ndigit)
{
    long double sum = 0;
    for (int i = std::min<int>(ndigit, x.dec_ndgts) - 1; i >= 0; i--)
        sum = (sum + x.dec_dgts[i]) / 100;
    for (int i = 0; i < x.dec_exp; i++)
        sum *= 100;
    for (int i = 0; i > x.dec_exp; i--)
        sum /= 100;
    return static_cast<double>(x.dec_pos == DEC_NEGATIVE ? -sum : sum);
}

// Any bytes as digits, any exponent: up to infinity, down to zero, and through the subnormal doubles.
TEST(Extended, records_become_the_same_doubles)
{
    Draw draw;
    for (Rounds rounds(100000); rounds.more();) {
        t_DECIMAL x = draw.record();
        if (draw.one_in(4)) x.dec_dgts[draw.below(DEC_DIGITS)] = static_cast<uint8_t>(draw.bits());
        if (draw.one_in(2)) x.dec_exp = static_cast<int16_t>(draw.between(-170, 160));
        if (draw.one_in(1000)) x.dec_exp = static_cast<int16_t>(draw.bits());
        const int ndigit = draw.between(-1, 9);
        double result = 0;
        dectoreal(&x, &result, ndigit);
        ASSERT_EQ(show(result), show(to_double_in_hardware(x, ndigit)))
            << show(x) << ", " << ndigit << " digits, in round " << rounds.number();
    }
}

#endif
