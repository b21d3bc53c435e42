// SPDX-License-Identifier: MIT
//
// An operation of two operands and a result, tried once against its model in one of the five ways that its three
// records can be one.
#pragma once

#include <cstring>
#include <gtest/gtest.h>
#include <utility>

#include "model/draw.h"
#include "model/notation.h"
#include "model/real.h"

namespace model {

using Pair = std::pair<t_DECIMAL, t_DECIMAL>;

inline bool same_bytes(const t_DECIMAL &a, const t_DECIMAL &b)
{
    return memcmp(&a, &b, sizeof a) == 0;
}

// A null result of the arithmetic has its exponent and count cleared.
inline bool clean_if_null(const t_DECIMAL &x)
{
    return !is_null(x) || (x.dec_exp == 0 && x.dec_ndgts == 0);
}

inline Outcome outcome_of(const Outcome &outcome)
{
    return outcome;
}
inline Outcome outcome_of(const Real &real)
{
    return {real.status, real.value};
}

// Fails the running test, naming operands and round, when code or result are not those of the model, or an operand
// that is not the result was changed. Gives back what the operation gave.
template <auto operation, auto expectation>
Outcome agree_in_one_aliasing(Draw &draw, Pair operands, int64_t round)
{
    static const char *const aliasings[] = {"apart", "result is a", "result is b", "a is b", "all one"};
    const int aliasing = draw.below(5);
    const bool one_operand = aliasing >= 3;
    if (one_operand) operands.first = operands.second;
    const auto &[a, b] = operands;
    t_DECIMAL x = a;
    t_DECIMAL y = b;
    t_DECIMAL apart = draw.record();
    t_DECIMAL *const result = aliasing == 0 || aliasing == 3 ? &apart : aliasing == 2 ? &y : &x;

    const int code = operation(&x, one_operand ? &x : &y, result);
    const Outcome expected = outcome_of(expectation(a, b));
    const bool right = code == expected.code && same(*result, expected.record) && clean_if_null(*result);
    const bool kept = (result == &x || same_bytes(x, a)) && (result == &y || same_bytes(y, b));
    EXPECT_TRUE(right && kept) << "a " << show(a) << "  b " << show(b) << "  " << aliasings[aliasing]
                               << "\n  expected: " << expected.code << " " << show(expected.record)
                               << "\n  got:      " << code << " " << show(*result)
                               << (kept ? "" : "\n  and an operand was changed") << "\n  in round " << round;
    return {code, *result};
}

} // namespace model
