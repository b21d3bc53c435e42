// SPDX-License-Identifier: MIT
//
// REAL arithmetic against the model, in every aliasing of operands and result, with exponents at both ends so that
// every status occurs.
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <map>

#include "ka/real.h"
#include "model/aliased.h"
#include "model/draw.h"
#include "model/notation.h"
#include "model/real.h"

using namespace model;

static constexpr Allow no_null = {.null = false};

// How often each status occurred, with each sign of the value stored.
class Tally {
public:
    void count(int status, const t_DECIMAL &value) { seen_[{status, sign(value)}]++; }
    void expect(int status, std::initializer_list<int> signs) const
    {
        for (const int s : signs)
            EXPECT_GT(seen_.count({status, s}), 0u) << "status " << status << " never came with sign " << s;
    }

private:
    std::map<std::pair<int, int>, int> seen_;
};

// Exponents near each other from draw.pair; one in four pairs is moved to where the ends are near.
static Pair operands(Draw &draw)
{
    auto [a, b] = draw.pair(no_null);
    if (draw.one_in(4)) {
        const auto end = [&] {
            return static_cast<int16_t>(draw.pick({-64, -64, -63, -33, -32, 32, 33, 62, 63, 63}));
        };
        a.dec_exp = end();
        b.dec_exp = draw.one_in(2) ? a.dec_exp : end();
    }
    return {a, b};
}

template <auto operation, auto expectation>
static Tally agree_with_the_model(int by_default)
{
    Tally tally;
    Draw draw;
    for (Rounds rounds(by_default); rounds.more();) {
        Pair pair = operands(draw);
        if (operation == m_dvd && !can_divide_by(pair.second)) pair.second.dec_dgts[0] = 1;
        const Outcome got = agree_in_one_aliasing<operation, expectation>(draw, pair, rounds.number());
        if (testing::Test::HasFailure()) break;
        tally.count(got.code, got.record);
    }
    return tally;
}

TEST(MAdd, agrees_with_the_model)
{
    const Tally tally = agree_with_the_model<m_add, real_add>(300000);
    tally.expect(REAL_OK, {-1, 0, 1});
    tally.expect(REAL_RANGE, {-1, 0, 1});
}

TEST(MSub, agrees_with_the_model)
{
    const Tally tally = agree_with_the_model<m_sub, real_subtract>(300000);
    tally.expect(REAL_OK, {-1, 0, 1});
    tally.expect(REAL_RANGE, {-1, 0, 1});
}

TEST(MMpy, agrees_with_the_model)
{
    const Tally tally = agree_with_the_model<m_mpy, real_multiply>(200000);
    tally.expect(REAL_OK, {-1, 0, 1});
    tally.expect(REAL_RANGE, {-1, 0, 1});
}

TEST(MDvd, agrees_with_the_model)
{
    const Tally tally = agree_with_the_model<m_dvd, real_divide>(100000);
    tally.expect(REAL_OK, {-1, 0, 1});
    tally.expect(REAL_RANGE, {-1, 0, 1});
    tally.expect(REAL_DIVISION_BY_ZERO, {-1, 1});
}

template <auto operation, auto expectation>
static void agree_at_places(int by_default)
{
    Tally tally;
    Draw draw;
    for (Rounds rounds(by_default); rounds.more();) {
        t_DECIMAL x = draw.record(no_null);
        if (!draw.one_in(4)) x.dec_exp = static_cast<int16_t>(draw.between(-6, 8));
        const t_DECIMAL before = x;
        const int places = draw.one_in(20) ? draw.between(0, 300) : draw.between(0, 18);
        t_DECIMAL apart = draw.record();
        t_DECIMAL *const result = draw.one_in(2) ? &apart : &x;
        const int status = operation(&x, places, result);
        const Real expected = expectation(before, places);
        const bool kept = result == &x || same_bytes(x, before);
        ASSERT_TRUE(status == expected.status && same(*result, expected.value) && kept)
            << show(before) << " to " << places << "\n  expected: " << expected.status << " " << show(expected.value)
            << "\n  got:      " << status << " " << show(*result) << (kept ? "" : "\n  and the operand was changed")
            << "\n  in round " << rounds.number();
        tally.count(status, *result);
    }
    tally.expect(REAL_OK, {-1, 0, 1});
}

TEST(MRound, agrees_with_the_model)
{
    agree_at_places<m_round, real_to_places>(300000);
}

TEST(MTrunc, agrees_with_the_model)
{
    agree_at_places<m_trunc, real_cut>(300000);
}

TEST(Mkprec, agrees_with_the_model)
{
    Tally tally;
    Draw draw;
    for (Rounds rounds(500000); rounds.more();) {
        t_DECIMAL x = draw.record(no_null);
        const bool nines = draw.one_in(4);
        if (nines) std::fill_n(x.dec_dgts, draw.between(1, DEC_DIGITS), static_cast<uint8_t>(99));
        if (draw.one_in(4)) x.dec_exp = static_cast<int16_t>(draw.one_in(4) ? DEC_EXP_MIN : DEC_EXP_MAX);
        const t_DECIMAL before = x;
        const bool small_first = x.dec_ndgts > 0 && x.dec_dgts[0] < 10;
        const int ndigits = draw.between(small_first ? -1 : 0, 18);
        const int status = mkprec(&x, ndigits);
        const Real expected = with_precision(before, ndigits);
        ASSERT_TRUE(status == expected.status && same(x, expected.value))
            << show(before) << " to " << ndigits << "\n  expected: " << expected.status << " " << show(expected.value)
            << "\n  got:      " << status << " " << show(x) << "\n  in round " << rounds.number();
        tally.count(status, x);
    }
    tally.expect(REAL_OK, {-1, 0, 1});
    tally.expect(REAL_RANGE, {-1, 0, 1});
}
