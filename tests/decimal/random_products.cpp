// SPDX-License-Identifier: MIT
//
// Multiplication, division, rounding and cutting to places against the model; the first two in every aliasing of
// operands and result.
#include <algorithm>
#include <climits>
#include <cstring>
#include <gtest/gtest.h>

#include "model/aliased.h"
#include "model/draw.h"
#include "model/exact.h"
#include "model/notation.h"
#include "model/rounds.h"

using namespace model;

static Pair for_division(Pair operands)
{
    if (!can_divide_by(operands.second)) operands.second.dec_dgts[0] = 1;
    return operands;
}

// Divisors that begin with 99s, and dividends near them: there the cut remainder outgrows its places.
static Pair near_rows_of_99(Draw &draw)
{
    t_DECIMAL b = draw.record(normal_only);
    memset(b.dec_dgts, 99, static_cast<size_t>(draw.between(1, b.dec_ndgts)));
    t_DECIMAL a = draw.one_in(2) ? b : draw.record(normal_only);
    if (draw.one_in(2)) memset(a.dec_dgts, 99, static_cast<size_t>(a.dec_ndgts));
    uint8_t &changed = a.dec_dgts[draw.below(a.dec_ndgts)];
    changed = static_cast<uint8_t>(draw.one_in(2) ? draw.between(1, 99) : changed - (changed > 1));
    return {a, b};
}

// A dividend that is a short quotient times the divisor, or one unit beside it: remainders of zero and next to it.
static Pair near_a_multiple(Draw &draw)
{
    const t_DECIMAL b = draw.record(normal_only);
    t_DECIMAL quotient = draw.record(normal_only);
    quotient.dec_ndgts = std::min(quotient.dec_ndgts, static_cast<int8_t>(draw.between(1, 3)));
    t_DECIMAL a = multiply(b, quotient).record;
    uint8_t &last = a.dec_dgts[a.dec_ndgts - 1];
    last = static_cast<uint8_t>(std::clamp(last + draw.between(-1, 1), 1, 99));
    return {a, b};
}

TEST(Decmul, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(400000); rounds.more() && !testing::Test::HasFailure();)
        agree_in_one_aliasing<decmul, multiply>(draw, draw.pair(), rounds.number());
}

TEST(Decdiv, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(250000); rounds.more() && !testing::Test::HasFailure();)
        agree_in_one_aliasing<decdiv, divide>(draw, for_division(draw.pair()), rounds.number());
}

TEST(Decdiv, agrees_with_the_model_near_multiples_and_rows_of_99)
{
    Draw draw;
    for (Rounds rounds(100000); rounds.more() && !testing::Test::HasFailure();)
        agree_in_one_aliasing<decdiv, divide>(draw, draw.one_in(2) ? near_a_multiple(draw) : near_rows_of_99(draw),
                                              rounds.number());
}

// Mostly within the digits of x or just beside them.
static int some_places(Draw &draw, const t_DECIMAL &x)
{
    if (draw.one_in(20)) return draw.pick({-1, INT_MIN, 0, 200, INT_MAX});
    return 2 * (draw.between(-1, DEC_DIGITS + 1) - x.dec_exp) + draw.below(2);
}

template <auto operation, auto expectation>
static void places_agree_with_the_model()
{
    Draw draw;
    for (Rounds rounds(1000000); rounds.more();) {
        t_DECIMAL a = draw.record();
        if (draw.one_in(2)) a.dec_exp = static_cast<int16_t>(draw.between(-3, 8));
        const int places = some_places(draw, a);
        t_DECIMAL x = a;
        const int code = operation(&x, places);
        const Outcome expected = expectation(a, places);
        const bool header = code == DEC_NEGATIVE_PLACES ? same_bytes(x, a) : clean_if_null(x);
        ASSERT_TRUE(code == expected.code && same(x, expected.record) && header)
            << show(a) << " to " << places << " places\n  expected: " << expected.code << " " << show(expected.record)
            << "\n  got:      " << code << " " << show(x) << "\n  in round " << rounds.number();
    }
}

TEST(Decround, agrees_with_the_model)
{
    places_agree_with_the_model<decround, to_places>();
}

TEST(Dectrunc, agrees_with_the_model)
{
    places_agree_with_the_model<dectrunc, cut_to_places>();
}
