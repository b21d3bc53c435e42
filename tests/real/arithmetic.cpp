// SPDX-License-Identifier: MIT
//
// REAL arithmetic, besides its vectors: which bytes are written, leftovers after a null, laws that hold whatever the
// digits.
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>

#include "ka/real.h"
#include "model/draw.h"
#include "model/exact.h"
#include "model/notation.h"

using namespace model;

using Arithmetic = int (*)(const t_DECIMAL *, const t_DECIMAL *, t_DECIMAL *);

static std::string outcome(Arithmetic operation, const t_DECIMAL &a, const t_DECIMAL &b)
{
    t_DECIMAL r = {};
    const int status = operation(&a, &b, &r);
    return std::to_string(status) + " " + show(r);
}

static t_DECIMAL negated(const t_DECIMAL &x)
{
    t_DECIMAL r;
    m_chs(&x, &r);
    return r;
}

// The outcome with the sign of its value changed; zero has none to change.
static std::string negated_outcome(Arithmetic operation, const t_DECIMAL &a, const t_DECIMAL &b)
{
    t_DECIMAL r = {};
    const int status = operation(&a, &b, &r);
    return std::to_string(status) + " " + show(negated(r));
}

// Normal values with exponents that bring every status.
static std::pair<t_DECIMAL, t_DECIMAL> far_and_near(Draw &draw)
{
    auto [a, b] = draw.pair(normal_only);
    if (draw.one_in(3)) {
        a.dec_exp = static_cast<int16_t>(draw.pick({-64, -63, -33, -32, 31, 32, 33, 62, 63}));
        b.dec_exp = static_cast<int16_t>(draw.one_in(2) ? a.dec_exp : draw.pick({-64, -33, -32, -31, 0, 1, 32, 63}));
    }
    return {a, b};
}

TEST(RealArithmetic, substitutes_are_the_constants_byte_for_byte)
{
    t_DECIMAL r = filled(7, DEC_NULL, 3, 0xEE);
    EXPECT_EQ(m_add(&c_dec_huge, &c_dec_huge, &r), REAL_RANGE);
    EXPECT_EQ(show_raw(r), show_raw(c_dec_huge));
    r = filled(7, DEC_NULL, 3, 0xEE);
    EXPECT_EQ(m_dvd(&c_dec_one, &c_dec_zero, &r), REAL_DIVISION_BY_ZERO);
    EXPECT_EQ(show_raw(r), show_raw(c_dec_huge));
    const t_DECIMAL tiny = record(-64, DEC_NEGATIVE, {1});
    r = filled(7, DEC_NULL, 3, 0xEE);
    EXPECT_EQ(m_mpy(&tiny, &tiny, &r), REAL_RANGE);
    EXPECT_EQ(show_raw(r), show_raw(c_dec_zero));
}

TEST(RealArithmetic, operands_that_are_one_record)
{
    const t_DECIMAL seven = record(1, DEC_NEGATIVE, {7});
    EXPECT_EQ(outcome(m_add, seven, seven), "0 1:-:14");
    EXPECT_EQ(outcome(m_sub, seven, seven), "0 0:+:");
    EXPECT_EQ(outcome(m_mpy, seven, seven), "0 1:+:49");
    EXPECT_EQ(outcome(m_dvd, seven, seven), "0 1:+:1");
}

TEST(RealArithmetic, operands_and_result_that_are_one_record)
{
    const auto alone = [](Arithmetic operation, t_DECIMAL x) {
        const int status = operation(&x, &x, &x);
        return std::to_string(status) + " " + show(x);
    };
    EXPECT_EQ(alone(m_add, negated(c_dec_huge)), "23 63:-:99,99,99,99,99,99,99");
    EXPECT_EQ(alone(m_sub, negated(c_dec_huge)), "0 0:+:");
    EXPECT_EQ(alone(m_mpy, negated(c_dec_huge)), "23 63:+:99,99,99,99,99,99,99");
    EXPECT_EQ(alone(m_mpy, record(-64, DEC_NEGATIVE, {1})), "23 0:+:");
    EXPECT_EQ(alone(m_dvd, c_dec_zero), "31 63:+:99,99,99,99,99,99,99");
    EXPECT_EQ(alone(m_dvd, negated(c_dec_huge)), "0 1:+:1");
}

TEST(RealArithmetic, result_over_an_operand_still_takes_the_sign_of_that_operand)
{
    const t_DECIMAL minus_huge = negated(c_dec_huge);
    t_DECIMAL x = minus_huge;
    EXPECT_EQ(m_sub(&x, &c_dec_huge, &x), REAL_RANGE);
    EXPECT_EQ(show(x), "63:-:99,99,99,99,99,99,99");
    x = minus_huge;
    EXPECT_EQ(m_mpy(&c_dec_huge, &x, &x), REAL_RANGE);
    EXPECT_EQ(show(x), "63:-:99,99,99,99,99,99,99");
    x = c_dec_zero;
    EXPECT_EQ(m_dvd(&minus_huge, &x, &x), REAL_DIVISION_BY_ZERO);
    EXPECT_EQ(show(x), "63:-:99,99,99,99,99,99,99");
    x = minus_huge;
    EXPECT_EQ(m_dvd(&x, &c_dec_zero, &x), REAL_DIVISION_BY_ZERO);
    EXPECT_EQ(show(x), "63:-:99,99,99,99,99,99,99");
}

// Digits after a null count as those of a number for as long as the rounding lasts; the sign byte comes back after.
TEST(Mkprec, digits_behind_a_null_are_rounded_and_it_stays_null)
{
    t_DECIMAL x = record(2, DEC_NULL, {12, 34, 56});
    EXPECT_EQ(mkprec(&x, 3), REAL_OK);
    EXPECT_EQ(show_raw(x), "exp 2 pos 255 ndgts 2 bytes 12,30,56,0,0,0,0,0");
    x = record(63, DEC_NULL, {99, 99});
    EXPECT_EQ(mkprec(&x, 1), REAL_RANGE);
    EXPECT_EQ(show_raw(x).substr(0, 22), "exp 63 pos 255 ndgts 1");
    EXPECT_EQ(x.dec_dgts[0], 90);
}

TEST(Mkprec, digits_behind_a_null_that_round_to_nothing_leave_zero)
{
    t_DECIMAL x = record(2, DEC_NULL, {49});
    EXPECT_EQ(mkprec(&x, 0), REAL_OK);
    EXPECT_EQ(show(x), "0:+:");
}

// As with every operation that ends in a header only.
TEST(Mkprec, zero_is_a_header_and_the_digit_bytes_stay)
{
    t_DECIMAL x = record(2, DEC_NEGATIVE, {49, 1, 2, 3, 4, 5, 6, 7});
    EXPECT_EQ(mkprec(&x, 0), REAL_OK);
    EXPECT_EQ(show_raw(x), "exp 0 pos 1 ndgts 0 bytes 49,1,2,3,4,5,6,7");
    x.dec_exp = -3;
    x.dec_pos = DEC_NEGATIVE;
    EXPECT_EQ(mkprec(&x, 5), REAL_OK);
    EXPECT_EQ(show_raw(x), "exp 0 pos 1 ndgts 0 bytes 49,1,2,3,4,5,6,7");
    x.dec_pos = DEC_NULL;
    EXPECT_EQ(mkprec(&x, 5), REAL_OK);
    EXPECT_EQ(show_raw(x), "exp 0 pos 1 ndgts 0 bytes 49,1,2,3,4,5,6,7");
}

TEST(Mkprec, digits_that_are_not_cut_stay_as_they_are)
{
    t_DECIMAL x = read_record("5:-:12,34");
    const std::string before = show_raw(x);
    EXPECT_EQ(mkprec(&x, 4), REAL_OK);
    EXPECT_EQ(show_raw(x), before);
    x = read_record("5:-:12,30,0");
    EXPECT_EQ(mkprec(&x, 6), REAL_OK);
    EXPECT_EQ(show(x), "5:-:12,30,0");
}

TEST(MAdd, commutes_over_the_whole_range)
{
    Draw draw;
    for (Rounds rounds(60000); rounds.more();) {
        const auto [a, b] = far_and_near(draw);
        ASSERT_EQ(outcome(m_add, a, b), outcome(m_add, b, a)) << show(a) << "  " << show(b);
    }
}

TEST(MAdd, is_the_same_on_both_sides_of_zero)
{
    Draw draw;
    for (Rounds rounds(60000); rounds.more();) {
        const auto [a, b] = far_and_near(draw);
        ASSERT_EQ(outcome(m_add, negated(a), negated(b)), negated_outcome(m_add, a, b)) << show(a) << "  " << show(b);
    }
}

TEST(MSub, is_the_sum_with_the_sign_changed)
{
    Draw draw;
    for (Rounds rounds(60000); rounds.more();) {
        const auto [a, b] = far_and_near(draw);
        ASSERT_EQ(outcome(m_sub, a, b), outcome(m_add, a, negated(b))) << show(a) << "  " << show(b);
    }
}

TEST(MMpy, takes_its_sign_from_both_factors)
{
    Draw draw;
    for (Rounds rounds(60000); rounds.more();) {
        const auto [a, b] = far_and_near(draw);
        const std::string opposite = negated_outcome(m_mpy, a, b);
        ASSERT_EQ(outcome(m_mpy, negated(a), b), opposite) << show(a) << "  " << show(b);
        ASSERT_EQ(outcome(m_mpy, a, negated(b)), opposite) << show(a) << "  " << show(b);
    }
}

TEST(MDvd, takes_its_sign_from_both_operands)
{
    Draw draw;
    for (Rounds rounds(60000); rounds.more();) {
        const auto [a, b] = far_and_near(draw);
        const std::string opposite = negated_outcome(m_dvd, a, b);
        ASSERT_EQ(outcome(m_dvd, negated(a), b), opposite) << show(a) << "  " << show(b);
        ASSERT_EQ(outcome(m_dvd, a, negated(b)), opposite) << show(a) << "  " << show(b);
    }
}

TEST(Mkprec, is_the_same_on_both_sides_of_zero)
{
    Draw draw;
    for (Rounds rounds(60000); rounds.more();) {
        const t_DECIMAL x = draw.record(normal_only);
        const int ndigits = draw.between(0, 17);
        t_DECIMAL up = x;
        t_DECIMAL down = negated(x);
        ASSERT_EQ(mkprec(&up, ndigits), mkprec(&down, ndigits)) << show(x) << " to " << ndigits;
        if (up.dec_ndgts > 0) {
            ASSERT_EQ(show(negated(up)), show(down)) << show(x) << " to " << ndigits;
        }
    }
}

TEST(Mkprec, twice_is_once)
{
    Draw draw;
    for (Rounds rounds(60000); rounds.more();) {
        const t_DECIMAL x = draw.record(normal_or_zero);
        const int ndigits = draw.between(1, 17);
        t_DECIMAL once = x;
        mkprec(&once, ndigits);
        t_DECIMAL twice = once;
        ASSERT_EQ(mkprec(&twice, ndigits), REAL_OK) << show(x) << " to " << ndigits;
        ASSERT_EQ(m_cmp(&once, &twice), 0) << show(x) << " to " << ndigits;
    }
}

TEST(Mkprec, keeps_the_order)
{
    Draw draw;
    for (Rounds rounds(60000); rounds.more();) {
        auto [low, high] = draw.pair(normal_only);
        if (m_cmp(&low, &high) > 0) std::swap(low, high);
        const int ndigits = draw.between(1, 17);
        t_DECIMAL first = low;
        t_DECIMAL second = high;
        mkprec(&first, ndigits);
        mkprec(&second, ndigits);
        ASSERT_LE(m_cmp(&first, &second), 0) << show(low) << " and " << show(high) << " to " << ndigits;
    }
}

// Filled up with zeros where a width is given.
static std::string decimals_shown(const t_DECIMAL &x, int count, int width = 0)
{
    int decpt = 0;
    int sign = 0;
    std::string digits = m_ecvt(&x, count, &decpt, &sign);
    digits.resize(std::max(digits.size(), static_cast<size_t>(width)), '0');
    return (sign ? "-" : "+") + digits + " e" + std::to_string(decpt);
}

TEST(Mkprec, gives_the_decimals_that_m_ecvt_shows)
{
    Draw draw;
    for (Rounds rounds(60000); rounds.more();) {
        const t_DECIMAL x = draw.record(normal_only);
        const int ndigits = draw.between(1, 16);
        t_DECIMAL rounded = x;
        if (mkprec(&rounded, ndigits) != REAL_OK) continue;
        ASSERT_EQ(decimals_shown(rounded, ndigits), decimals_shown(x, ndigits)) << show(x) << " to " << ndigits;
        ASSERT_EQ(decimals_shown(rounded, 20), decimals_shown(rounded, ndigits, 20)) << show(x) << " to " << ndigits;
    }
}
