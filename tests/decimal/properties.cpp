// SPDX-License-Identifier: MIT
//
// Laws that hold whatever the digits: they need no model, and find what a model and a library may both get wrong.
#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

#include "laws.h"
#include "model/draw.h"
#include "model/guarded.h"
#include "model/notation.h"
#include "model/rounds.h"

using namespace model;

TEST(Decadd, commutes)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        const auto [a, b] = draw.pair(normal_only);
        ASSERT_EQ(of_two<decadd>(a, b), of_two<decadd>(b, a)) << show(a) << "  " << show(b);
    }
}

TEST(Decadd, is_the_same_on_both_sides_of_zero)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        const auto [a, b] = draw.pair(normal_only);
        t_DECIMAL up;
        t_DECIMAL down;
        const t_DECIMAL minus_a = negated(a);
        const t_DECIMAL minus_b = negated(b);
        ASSERT_EQ(decadd(&a, &b, &up), decadd(&minus_a, &minus_b, &down));
        ASSERT_EQ(show(negated(up)), show(down)) << show(a) << "  " << show(b);
    }
}

TEST(Decadd, grows_with_its_operand)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        auto [low, high] = draw.pair(normal_or_zero);
        const t_DECIMAL c = draw.one_in(2) ? draw.pair(normal_only).first : negated(low);
        if (deccmp(&low, &high) > 0) std::swap(low, high);
        t_DECIMAL first;
        t_DECIMAL second;
        if (decadd(&low, &c, &first) != DEC_OK || decadd(&high, &c, &second) != DEC_OK) continue;
        if (low.dec_ndgts == 0 || high.dec_ndgts == 0) continue;
        ASSERT_LE(deccmp(&first, &second), 0) << show(low) << " and " << show(high) << " each plus " << show(c);
    }
}

TEST(Decsub, value_less_itself_is_the_positive_zero)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        const t_DECIMAL a = draw.record(normal_only);
        t_DECIMAL result;
        ASSERT_EQ(decsub(&a, &a, &result), DEC_OK);
        ASSERT_EQ(show(result), "0:+:") << show(a);
    }
}

TEST(Decsub, sign_of_the_difference_is_the_order)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        const auto [a, b] = draw.pair(normal_only);
        t_DECIMAL difference;
        decsub(&a, &b, &difference);
        ASSERT_EQ(deccmp(&difference, &c_dec_zero), deccmp(&a, &b)) << show(a) << "  " << show(b);
    }
}

TEST(Deccmp, is_antisymmetric)
{
    Draw draw;
    for (Rounds rounds(300000); rounds.more();) {
        const auto [a, b] = draw.pair(normal_only);
        ASSERT_EQ(deccmp(&a, &b), -deccmp(&b, &a)) << show(a) << "  " << show(b);
    }
}

TEST(Deccmp, is_transitive)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        const auto [a, b] = draw.pair(normal_only);
        t_DECIMAL all[] = {a, b, draw.one_in(2) ? draw.pair(normal_only).first : c_dec_zero};
        std::sort(all, all + 3, [](const t_DECIMAL &x, const t_DECIMAL &y) { return deccmp(&x, &y) < 0; });
        ASSERT_TRUE(deccmp(&all[0], &all[1]) <= 0 && deccmp(&all[1], &all[2]) <= 0 && deccmp(&all[0], &all[2]) <= 0)
            << show(all[0]) << "  " << show(all[1]) << "  " << show(all[2]);
    }
}

TEST(Decchs, twice_gives_the_value_back)
{
    Draw draw;
    for (Rounds rounds(100000); rounds.more();) {
        const t_DECIMAL a = draw.record({.null = false});
        ASSERT_EQ(show(negated(negated(a))), show(a));
    }
}

static std::string laid_out(const t_DECIMAL &x, int length, int places)
{
    Guarded field(length);
    dectoasc(&x, field.data(), length, places);
    return field.text();
}

// A field and places that show every digit of x; nothing is lost on the way back.
static std::string shown_in_full(const t_DECIMAL &x)
{
    if (x.dec_exp > 9) return laid_out(x, 23, 0);
    return laid_out(x, 160, std::max(2 * (x.dec_ndgts - x.dec_exp), 0));
}

TEST(Deccvasc, reads_back_what_was_laid_out)
{
    Draw draw;
    for (Rounds rounds(100000); rounds.more();) {
        t_DECIMAL x = draw.record(normal_or_zero);
        // Between 19 and 23 decimals before the point the whole part is written out, and read only to the 18th.
        if (x.dec_exp > 9 && x.dec_exp < 13) x.dec_exp = 13;
        if (x.dec_ndgts == 0) x.dec_exp = 0;
        const std::string text = shown_in_full(x);
        t_DECIMAL back;
        ASSERT_EQ(deccvasc(text.data(), static_cast<int>(text.size()), &back), DEC_OK) << show(x) << " as " << text;
        ASSERT_EQ(show(back), show(x)) << "as " << text;
    }
}

TEST(Lddecimal, loads_back_what_was_stored)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        const t_DECIMAL x = draw.record({.zero = false, .trailing_zeros = false, .leading_zeros = true});
        if (x.dec_exp == DEC_EXP_MAX && x.dec_pos == DEC_NEGATIVE) continue;
        uint8_t field[12];
        const int length = draw.between(9, 12);
        stdecimal(&x, field, length);
        t_DECIMAL back;
        lddecimal(field, length, &back);
        ASSERT_EQ(show(back), show(x)) << "in " << length;
    }
}

TEST(Dectodbl, keeps_the_order)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        auto [low, high] = draw.pair(normal_only);
        if (deccmp(&low, &high) > 0) std::swap(low, high);
        double first = 0;
        double second = 0;
        dectodbl(&low, &first);
        dectodbl(&high, &second);
        ASSERT_LE(first, second) << show(low) << " and " << show(high);
    }
}

TEST(Deccvdbl, keeps_the_order)
{
    Draw draw;
    for (Rounds rounds(60000); rounds.more();) {
        double low = draw.finite_double();
        double high = draw.one_in(2) ? draw.finite_double() : low * (1 + draw.between(0, 100) * 1e-15);
        if (low > high) std::swap(low, high);
        t_DECIMAL first;
        t_DECIMAL second;
        if (deccvdbl(low, &first) != DEC_OK || deccvdbl(high, &second) != DEC_OK) continue;
        if (low == 0 || high == 0) continue;
        ASSERT_LE(deccmp(&first, &second), 0) << show(low) << " and " << show(high);
    }
}
