// SPDX-License-Identifier: MIT
//
// Laws of multiplication, division and of rounding and cutting to places that hold whatever the digits.
#include <gtest/gtest.h>

#include "laws.h"
#include "model/draw.h"
#include "model/exact.h"
#include "model/notation.h"
#include "model/rounds.h"

using namespace model;

// True of the product although parts of it are left out: the same ones, whichever operand comes first.
TEST(Decmul, commutes)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        const auto [a, b] = draw.pair();
        ASSERT_EQ(of_two<decmul>(a, b), of_two<decmul>(b, a)) << show(a) << "  " << show(b);
    }
}

TEST(Decmul, one_changes_nothing)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        const t_DECIMAL x = draw.record(normal_only);
        ASSERT_EQ(of_two<decmul>(x, c_dec_one), "0 " + show(x));
        ASSERT_EQ(of_two<decmul>(c_dec_one, x), "0 " + show(x));
    }
}

TEST(Decdiv, one_changes_nothing)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        const t_DECIMAL x = draw.record(normal_only);
        ASSERT_EQ(of_two<decdiv>(x, c_dec_one), "0 " + show(x));
    }
}

TEST(Decdiv, value_by_itself_is_one)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        const t_DECIMAL x = draw.record(normal_only);
        ASSERT_EQ(of_two<decdiv>(x, x), "0 1:+:1") << show(x);
    }
}

// The signs of the operands decide that of the result, and nothing else.
template <auto operation>
static void sign_is_that_of_the_operands()
{
    Draw draw;
    for (Rounds rounds(150000); rounds.more();) {
        const auto [a, b] = draw.pair(normal_only);
        t_DECIMAL result;
        t_DECIMAL mirrored;
        const int code = operation(&a, &b, &result);
        const std::string digits = show(result);
        const t_DECIMAL minus_a = negated(a);
        const t_DECIMAL minus_b = negated(b);
        ASSERT_EQ(operation(&minus_a, &b, &mirrored), code);
        ASSERT_EQ(show(negated(mirrored)), digits) << show(a) << "  " << show(b);
        ASSERT_EQ(operation(&a, &minus_b, &mirrored), code);
        ASSERT_EQ(show(negated(mirrored)), digits) << show(a) << "  " << show(b);
        ASSERT_EQ(operation(&minus_a, &minus_b, &mirrored), code);
        ASSERT_EQ(show(mirrored), digits) << show(a) << "  " << show(b);
    }
}

TEST(Decmul, sign_is_that_of_the_operands)
{
    sign_is_that_of_the_operands<decmul>();
}

TEST(Decdiv, sign_is_that_of_the_operands)
{
    sign_is_that_of_the_operands<decdiv>();
}

TEST(Decsub, exchanged_operands_change_the_sign)
{
    Draw draw;
    for (Rounds rounds(150000); rounds.more();) {
        const auto [a, b] = draw.pair(normal_only);
        t_DECIMAL result;
        t_DECIMAL mirrored;
        ASSERT_EQ(decsub(&a, &b, &result), decsub(&b, &a, &mirrored));
        ASSERT_EQ(show(negated(mirrored)), show(result)) << show(a) << "  " << show(b);
    }
}

// Products of whole numbers with few digits lose nothing, so that they can be divided again.
TEST(Decdiv, gives_back_the_factor_of_an_exact_product)
{
    Draw draw;
    for (Rounds rounds(150000); rounds.more();) {
        t_DECIMAL a = draw.record(normal_only);
        t_DECIMAL b = draw.record(normal_only);
        for (t_DECIMAL *x : {&a, &b}) {
            x->dec_exp = x->dec_ndgts = std::min<int8_t>(x->dec_ndgts, 4);
            uint8_t &last = x->dec_dgts[x->dec_ndgts - 1];
            last = std::max<uint8_t>(last, 1);
        }
        t_DECIMAL product;
        ASSERT_EQ(decmul(&a, &b, &product), DEC_OK);
        ASSERT_EQ(of_two<decdiv>(product, b), "0 " + show(a)) << "times " << show(b);
    }
}

static t_DECIMAL rounded(t_DECIMAL x, int places)
{
    EXPECT_EQ(decround(&x, places), DEC_OK);
    return x;
}

static t_DECIMAL cut(t_DECIMAL x, int places)
{
    EXPECT_EQ(dectrunc(&x, places), DEC_OK);
    return x;
}

struct Case {
    t_DECIMAL x;
    int places;
};

// Numbers with digits on both sides of the point or not far after it, and places within them.
static Case drawn_case(Draw &draw)
{
    t_DECIMAL x = draw.record(normal_only);
    x.dec_exp = static_cast<int16_t>(draw.between(-4, 9));
    return {x, draw.between(0, 2 * std::max(x.dec_ndgts - x.dec_exp, 1))};
}

static constexpr int lowest = -14;

// x in units far below its last digit.
static Int exactly(const t_DECIMAL &x)
{
    return in_units(x, lowest);
}

TEST(Decround, is_off_by_half_a_unit_at_most)
{
    Draw draw;
    for (Rounds rounds(150000); rounds.more();) {
        const auto [x, places] = drawn_case(draw);
        const t_DECIMAL y = rounded(x, places);
        const Int unit = power(10, -2 * lowest - std::min(places, -2 * lowest));
        const Int off = exactly(y) - exactly(x);
        ASSERT_LE(2 * abs(off), unit) << show(x) << " to " << places << " is " << show(y);
        ASSERT_TRUE(2 * off != -unit) << "half a unit goes away from zero: " << show(x) << " to " << places;
        ASSERT_EQ(exactly(y) % unit, 0) << show(y) << " has more places than " << places;
        ASSERT_TRUE(y.dec_ndgts == 0 || y.dec_pos == x.dec_pos);
    }
}

TEST(Dectrunc, is_never_farther_from_zero_and_never_off_by_a_unit)
{
    Draw draw;
    for (Rounds rounds(150000); rounds.more();) {
        const auto [x, places] = drawn_case(draw);
        const t_DECIMAL y = cut(x, places);
        const Int unit = power(10, -2 * lowest - std::min(places, -2 * lowest));
        const Int off = exactly(x) - exactly(y);
        ASSERT_GE(off, 0) << show(x) << " to " << places << " is " << show(y);
        ASSERT_LT(off, unit) << show(x) << " to " << places << " is " << show(y);
        if (x.dec_exp >= 0) {
            ASSERT_EQ(exactly(y) % unit, 0) << show(y) << " has more places than " << places;
        }
        ASSERT_TRUE(y.dec_ndgts == 0 || y.dec_pos == x.dec_pos);
    }
}

TEST(Decround, twice_is_once)
{
    Draw draw;
    for (Rounds rounds(150000); rounds.more();) {
        const auto [x, places] = drawn_case(draw);
        const t_DECIMAL once = rounded(x, places);
        ASSERT_EQ(show(rounded(once, places)), show(once)) << show(x) << " to " << places;
    }
}

TEST(Dectrunc, twice_is_once)
{
    Draw draw;
    for (Rounds rounds(150000); rounds.more();) {
        const auto [x, places] = drawn_case(draw);
        const t_DECIMAL once = cut(x, places);
        ASSERT_EQ(show(cut(once, places)), show(once)) << show(x) << " to " << places;
    }
}

TEST(Dectrunc, result_is_normal)
{
    Draw draw;
    for (Rounds rounds(150000); rounds.more();) {
        const auto [x, places] = drawn_case(draw);
        ASSERT_TRUE(is_normal(cut(x, places))) << show(x) << " to " << places;
    }
}

template <auto operation>
static void is_the_same_on_both_sides_of_zero()
{
    Draw draw;
    for (Rounds rounds(150000); rounds.more();) {
        const auto [x, places] = drawn_case(draw);
        ASSERT_EQ(show(operation(negated(x), places)), show(negated(operation(x, places))))
            << show(x) << " to " << places;
    }
}

TEST(Decround, is_the_same_on_both_sides_of_zero)
{
    is_the_same_on_both_sides_of_zero<rounded>();
}

TEST(Dectrunc, is_the_same_on_both_sides_of_zero)
{
    is_the_same_on_both_sides_of_zero<cut>();
}

TEST(Decround, keeps_the_order)
{
    Draw draw;
    for (Rounds rounds(150000); rounds.more();) {
        auto [low, high] = draw.pair(normal_only);
        if (deccmp(&low, &high) > 0) std::swap(low, high);
        const int places = draw.between(0, 16);
        const t_DECIMAL first = rounded(low, places);
        const t_DECIMAL second = rounded(high, places);
        ASSERT_LE(deccmp(&first, &second), 0) << show(low) << " and " << show(high) << " to " << places;
    }
}
