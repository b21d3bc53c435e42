// SPDX-License-Identifier: MIT
//
// The normaliser beside its vectors: bytes, sign byte, and its assertion.
#include <gtest/gtest.h>

#include "dec_int.h"
#include "model/crash.h"

TEST(DecRound, sign_byte_is_left_alone_unless_the_result_is_zero)
{
    t_DECACC acc = {1, 0xAB, 2, {5, 0}};
    EXPECT_EQ(dec_round(&acc, 0), DEC_OK);
    EXPECT_EQ(acc.dec_pos, 0xAB);
    acc = {1, 0xAB, 1, {0}};
    EXPECT_EQ(dec_round(&acc, 0), DEC_OK);
    EXPECT_EQ(acc.dec_pos, DEC_POSITIVE);
}

TEST(DecRound, digits_moved_forward_leave_zero_bytes_behind)
{
    t_DECACC acc = {3, DEC_POSITIVE, 4, {0, 0, 5, 6}};
    EXPECT_EQ(dec_round(&acc, 0), DEC_OK);
    EXPECT_EQ(acc.dec_ndgts, 2);
    const uint8_t expected[] = {5, 6, 0, 0};
    EXPECT_TRUE(std::equal(expected, expected + 4, acc.dec_dgts));
}

static void round_count(int ndgts, int carry)
{
    t_DECACC acc = {1, DEC_POSITIVE, static_cast<int8_t>(ndgts), {5}};
    dec_round(&acc, carry);
}

// Program, source without its extension, line, plain function name, and the text of the expression.
static const char assertion[] = "test_decimal_[36][24]: math/decimal/src/dec_roun:[0-9]+: dec_round: "
                                "Assertion `s->dec_ndgts >= 0 && s->dec_ndgts <= ACCSIZE' failed\\.\n";

TEST(DecRoundDeath, digit_count_outside_0_to_9_fails_the_assertion)
{
    EXPECT_ABORT(round_count(10, 0), assertion);
    EXPECT_ABORT(round_count(-1, 0), assertion);
    EXPECT_ABORT(round_count(127, 0), assertion);
    EXPECT_ABORT(round_count(-128, 0), assertion);
}

TEST(DecRoundDeath, carry_does_not_excuse_a_wrong_digit_count)
{
    EXPECT_ABORT(round_count(10, 1), assertion);
    EXPECT_ABORT(round_count(-1, 1), assertion);
}
