// SPDX-License-Identifier: MIT
//
// Addition, subtraction, comparison, sign change and the normaliser against the model, in every aliasing of operands
// and result.
#include <cstring>
#include <gtest/gtest.h>

#include "dec_int.h"
#include "model/aliased.h"
#include "model/draw.h"
#include "model/exact.h"
#include "model/notation.h"
#include "model/rounds.h"

using namespace model;

template <auto operation, auto expectation>
static void agree_with_the_model()
{
    Draw draw;
    for (Rounds rounds(250000); rounds.more() && !testing::Test::HasFailure();)
        agree_in_one_aliasing<operation, expectation>(draw, draw.pair(), rounds.number());
}

TEST(Decadd, agrees_with_the_model)
{
    agree_with_the_model<decadd, add>();
}

TEST(Decsub, agrees_with_the_model)
{
    agree_with_the_model<decsub, subtract>();
}

TEST(Deccmp, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(500000); rounds.more();) {
        const auto [a, b] = draw.pair();
        const t_DECIMAL &other = draw.one_in(10) ? a : b;
        ASSERT_EQ(deccmp(&a, &other), compare(a, other))
            << "a " << show(a) << "  b " << show(other) << " in round " << rounds.number();
    }
}

TEST(Decchs, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        const t_DECIMAL a = draw.record();
        t_DECIMAL x = a;
        ASSERT_EQ(decchs(&x), DEC_OK);
        const t_DECIMAL expected = change_sign(a);
        ASSERT_TRUE(same(x, expected) && clean_if_null(x) && memcmp(x.dec_dgts, a.dec_dgts, DEC_DIGITS) == 0)
            << "x " << show_raw(a) << "\n  expected: " << show(expected) << "\n  got:      " << show_raw(x);
    }
}

static std::string show_accumulator(int exp, int pos, const std::vector<int> &digits, int carry)
{
    std::string text = std::to_string(exp) + (pos ? ":+" : ":-");
    for (const int digit : digits)
        text += "," + std::to_string(digit);
    return text + " carry " + std::to_string(carry);
}

TEST(DecRound, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(400000); rounds.more();) {
        std::vector<int> digits(static_cast<size_t>(draw.one_in(2) ? ACCSIZE : draw.between(0, ACCSIZE)));
        const bool nines = draw.one_in(4);
        for (int &digit : digits)
            digit = nines && !draw.one_in(8) ? 99 : draw.digit();
        std::fill_n(digits.begin(), draw.one_in(4) ? draw.below(static_cast<int>(digits.size()) + 1) : 0, 0);
        const int exp = draw.one_in(8) ? draw.between(-3000, 3000) : draw.exponent() + draw.between(-9, 9);
        const int pos = draw.below(2);
        const int carry = draw.one_in(2) ? 0 : draw.one_in(2) ? 1 : draw.between(-1, 99);

        t_DECACC acc = {static_cast<int16_t>(exp), static_cast<uint8_t>(pos), static_cast<int8_t>(digits.size()), {}};
        for (uint8_t &byte : acc.dec_dgts)
            byte = static_cast<uint8_t>(draw.bits());
        std::copy(digits.begin(), digits.end(), acc.dec_dgts);
        const int code = dec_round(&acc, carry);
        const Outcome expected = model::round(exp, pos, digits, carry);
        t_DECIMAL result;
        memcpy(&result, &acc, sizeof result);
        ASSERT_TRUE(code == expected.code && same(result, expected.record))
            << show_accumulator(exp, pos, digits, carry) << "\n  expected: " << expected.code << " "
            << show(expected.record) << "\n  got:      " << code << " " << show(result) << "\n  in round "
            << rounds.number();
    }
}
