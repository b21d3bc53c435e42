// SPDX-License-Identifier: MIT
//
// How far a result may be from the exact one: the bounds that the header promises, tried without a model of how the
// result comes about. Differences are whole numbers, units are those of the result's eighth digit.
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>

#include "model/draw.h"
#include "model/exact.h"
#include "model/notation.h"
#include "model/rounds.h"

using namespace model;

using Pair = std::pair<t_DECIMAL, t_DECIMAL>;

static constexpr int hundredths = 100;

static Int signed_units(const t_DECIMAL &x, int exponent)
{
    const Int magnitude = in_units(x, exponent);
    return is_negative(x) ? Int(-magnitude) : magnitude;
}

static int unit_exponent(const t_DECIMAL &result)
{
    return result.dec_exp - DEC_DIGITS;
}

// Operands near each other in exponent, all digits kept by a common unit.
static Pair close_pair(Draw &draw)
{
    auto [a, b] = draw.pair(normal_only);
    a.dec_exp = static_cast<int16_t>(draw.between(-3, 3));
    b.dec_exp = static_cast<int16_t>(a.dec_exp - draw.between(0, 10));
    return draw.one_in(2) ? Pair(a, b) : Pair(b, a);
}

// Large digits after a small first one: the most is left out of such products and quotients.
static Pair heavy_pair(Draw &draw)
{
    auto [a, b] = draw.pair(normal_only);
    for (t_DECIMAL *x : {&a, &b}) {
        x->dec_exp = static_cast<int16_t>(draw.between(-3, 3));
        x->dec_ndgts = DEC_DIGITS;
        memset(x->dec_dgts, 99, DEC_DIGITS);
        if (draw.one_in(2)) x->dec_dgts[0] = static_cast<uint8_t>(draw.between(1, 9));
        for (int changes = draw.below(4); changes > 0; changes--)
            x->dec_dgts[draw.below(DEC_DIGITS)] = static_cast<uint8_t>(draw.between(1, 99));
    }
    if (draw.one_in(3)) a = record(1, DEC_POSITIVE, {draw.between(1, 99)});
    return {a, b};
}

TEST(Decadd, is_within_its_error_bounds)
{
    Draw draw;
    for (Rounds rounds(150000); rounds.more();) {
        const auto [a, b] = draw.one_in(3) ? heavy_pair(draw) : close_pair(draw);
        t_DECIMAL sum;
        ASSERT_EQ(decadd(&a, &b, &sum), DEC_OK);
        const int lowest = -40;
        const Int exact = signed_units(a, lowest) + signed_units(b, lowest);
        const Int off = abs(signed_units(sum, lowest) - exact);
        const std::string text = show(a) + " + " + show(b) + " gives " + show(sum);
        if (sum.dec_ndgts == 0) {
            ASSERT_EQ(off, 0) << text;
            continue;
        }
        const Int unit = power(base, unit_exponent(sum) - lowest);
        if (a.dec_pos == b.dec_pos)
            ASSERT_LE(2 * off, unit) << text;
        else
            ASSERT_LT(off, unit) << text;
    }
}

// No digit of either operand is below the ninth place of the larger one.
static bool fits_nine_places(const t_DECIMAL &a, const t_DECIMAL &b)
{
    const int top = std::max(a.dec_exp, b.dec_exp);
    return std::min(a.dec_exp - a.dec_ndgts, b.dec_exp - b.dec_ndgts) >= top - DEC_DIGITS - 1;
}

TEST(Decadd, rounds_exactly_what_fits_nine_digits)
{
    Draw draw;
    int seen = 0;
    for (Rounds rounds(150000); rounds.more();) {
        const auto [a, b] = close_pair(draw);
        if (!fits_nine_places(a, b)) continue;
        seen++;
        t_DECIMAL sum;
        ASSERT_EQ(decadd(&a, &b, &sum), DEC_OK);
        const int lowest = std::min(a.dec_exp, b.dec_exp) - DEC_DIGITS;
        const Int exact = signed_units(a, lowest) + signed_units(b, lowest);
        const Outcome nearest = normal(exact < 0 ? DEC_NEGATIVE : DEC_POSITIVE, abs(exact), lowest);
        ASSERT_TRUE(same(sum, nearest.record)) << show(a) << " + " << show(b) << " gives " << show(sum);
    }
    ASSERT_GT(seen, 0);
}

// The exact product and the result in units of the last digit that the product can have.
TEST(Decmul, is_within_its_error_bounds)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        const auto [a, b] = draw.one_in(2) ? heavy_pair(draw) : close_pair(draw);
        t_DECIMAL product;
        ASSERT_EQ(decmul(&a, &b, &product), DEC_OK);
        const int a_last = a.dec_exp - DEC_DIGITS;
        const int b_last = b.dec_exp - DEC_DIGITS;
        const Int exact = in_units(a, a_last) * in_units(b, b_last);
        const Int off = in_units(product, a_last + b_last) - exact;
        const Int unit = power(base, unit_exponent(product) - a_last - b_last);
        ASSERT_LE(2 * off, unit) << show(a) << " * " << show(b) << " gives " << show(product);
        ASSERT_GT(2 * off, -13 * unit) << show(a) << " * " << show(b) << " gives " << show(product);
        if (a.dec_ndgts + b.dec_ndgts <= DEC_DIGITS) {
            ASSERT_EQ(off, 0) << show(a) << " * " << show(b);
        }
    }
}

// Just below or at a multiple of the divisor, where digits of the quotient are followed by a row of 99s or 0s.
static Pair near_a_multiple(Draw &draw)
{
    Pair pair = draw.one_in(2) ? heavy_pair(draw) : close_pair(draw);
    t_DECIMAL &b = pair.second;
    if (draw.one_in(4)) memset(b.dec_dgts, 99, static_cast<size_t>(draw.between(1, std::min<int>(2, b.dec_ndgts))));
    t_DECIMAL quotient = draw.record(normal_only);
    const int length = draw.between(1, quotient.dec_ndgts);
    const Int multiple = in_units(b, b.dec_exp - DEC_DIGITS) * in_units(quotient, quotient.dec_exp - length);
    const Int below = multiple / power(base, length - 1) - draw.below(2);
    std::vector<int> digits;
    for (Int rest = below; rest != 0; rest /= base)
        digits.insert(digits.begin(), static_cast<int>(Int(rest % base)));
    digits.resize(DEC_DIGITS);
    pair.first = record(0, DEC_POSITIVE, digits);
    return pair;
}

static void quotient_is_within_its_bounds(const t_DECIMAL &a, const t_DECIMAL &b)
{
    t_DECIMAL quotient;
    ASSERT_EQ(decdiv(&a, &b, &quotient), DEC_OK);
    // quotient * b against a, in units that hold the last digit of either.
    const Int dividend = in_units(a, a.dec_exp - DEC_DIGITS);
    const Int divisor = in_units(b, b.dec_exp - DEC_DIGITS);
    const int unit = unit_exponent(quotient);
    const int shift = a.dec_exp - b.dec_exp - unit;
    ASSERT_GE(shift, 0);
    const Int off = in_units(quotient, unit) * divisor - dividend * power(base, shift);
    const bool rounded = dividend >= divisor;
    // A divisor whose first digit is 99 can lose what follows the first digits of the quotient.
    const Int lost = b.dec_dgts[0] == 99 ? power(base, 5) : 0;
    const Int too_large = rounded ? 70 : 1400;
    const Int too_small = (rounded ? 70 : 1900) + hundredths * lost;
    ASSERT_LT(hundredths * off, too_large * divisor) << show(a) << " / " << show(b) << " gives " << show(quotient);
    ASSERT_GT(hundredths * off, -too_small * divisor) << show(a) << " / " << show(b) << " gives " << show(quotient);
}

TEST(Decdiv, is_within_its_error_bounds)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more() && !HasFatalFailure();) {
        const int kind = draw.below(3);
        const auto [a, b] = kind == 0 ? near_a_multiple(draw) : kind == 1 ? heavy_pair(draw) : close_pair(draw);
        quotient_is_within_its_bounds(a, b);
    }
}
