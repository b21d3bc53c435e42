// SPDX-License-Identifier: MIT
//
// Addition, comparison and sign change: what is written and read, byte by byte.
#include <cstring>
#include <gtest/gtest.h>

#include "model/exact.h"
#include "model/notation.h"

using namespace model;

static const char null_header_over_77[] = "exp 0 pos 255 ndgts 0 bytes 77,77,77,77,77,77,77,77";

TEST(Decadd, null_result_is_0_255_0_over_untouched_digit_bytes)
{
    const t_DECIMAL one = record(1, DEC_POSITIVE, {1});
    const t_DECIMAL null = filled(9, DEC_NULL, 3, 5);
    t_DECIMAL result = filled(9, DEC_NEGATIVE, 8, 77);
    EXPECT_EQ(decadd(&one, &null, &result), DEC_OK);
    EXPECT_EQ(show_raw(result), null_header_over_77);
    result = filled(9, DEC_NEGATIVE, 8, 77);
    EXPECT_EQ(decadd(&null, &one, &result), DEC_OK);
    EXPECT_EQ(show_raw(result), null_header_over_77);
}

TEST(Decsub, null_result_is_0_255_0_over_untouched_digit_bytes)
{
    const t_DECIMAL one = record(1, DEC_POSITIVE, {1});
    const t_DECIMAL null = filled(9, DEC_NULL, 3, 5);
    t_DECIMAL result = filled(9, DEC_NEGATIVE, 8, 77);
    EXPECT_EQ(decsub(&one, &null, &result), DEC_OK);
    EXPECT_EQ(show_raw(result), null_header_over_77);
    result = filled(9, DEC_NEGATIVE, 8, 77);
    EXPECT_EQ(decsub(&null, &one, &result), DEC_OK);
    EXPECT_EQ(show_raw(result), null_header_over_77);
}

TEST(Decchs, null_becomes_0_255_0_over_untouched_digit_bytes)
{
    t_DECIMAL null = filled(9, DEC_NULL, 3, 77);
    EXPECT_EQ(decchs(&null), DEC_OK);
    EXPECT_EQ(show_raw(null), null_header_over_77);
}

TEST(Decadd, null_operand_may_be_the_result)
{
    const t_DECIMAL one = record(1, DEC_POSITIVE, {1});
    t_DECIMAL null = filled(9, DEC_NULL, 3, 77);
    EXPECT_EQ(decadd(&null, &one, &null), DEC_OK);
    EXPECT_EQ(show_raw(null), null_header_over_77);
}

TEST(Decadd, digit_bytes_past_the_digits_are_not_read)
{
    t_DECIMAL a = filled(1, DEC_POSITIVE, 1, 255);
    t_DECIMAL b = filled(0, DEC_POSITIVE, 1, 99);
    a.dec_dgts[0] = 5;
    b.dec_dgts[0] = 50;
    t_DECIMAL result;
    EXPECT_EQ(decadd(&a, &b, &result), DEC_OK);
    EXPECT_EQ(show(result), "1:+:5,50");
    EXPECT_EQ(decsub(&a, &b, &result), DEC_OK);
    EXPECT_EQ(show(result), "1:+:4,50");
}

TEST(Deccmp, digit_bytes_past_the_digits_are_not_read)
{
    t_DECIMAL a = filled(1, DEC_POSITIVE, 1, 99);
    t_DECIMAL b = filled(1, DEC_POSITIVE, 1, 0);
    a.dec_dgts[0] = b.dec_dgts[0] = 5;
    EXPECT_EQ(deccmp(&a, &b), 0);
    EXPECT_EQ(deccmp(&b, &a), 0);
}

TEST(Decadd, zero_operand_gives_all_twelve_bytes_of_the_other)
{
    const t_DECIMAL zero = c_dec_zero;
    const t_DECIMAL odd = filled(50, DEC_NEGATIVE, 3, 88);
    t_DECIMAL result = {};
    EXPECT_EQ(decadd(&zero, &odd, &result), DEC_OK);
    EXPECT_EQ(show_raw(result), show_raw(odd));
    result = {};
    EXPECT_EQ(decadd(&odd, &zero, &result), DEC_OK);
    EXPECT_EQ(show_raw(result), show_raw(odd));
    result = {};
    EXPECT_EQ(decsub(&odd, &zero, &result), DEC_OK);
    EXPECT_EQ(show_raw(result), show_raw(odd));
}

TEST(Decadd, operands_stay_as_they_are)
{
    const t_DECIMAL a = filled(1, DEC_POSITIVE, 8, 99);
    const t_DECIMAL b = filled(-1, DEC_NEGATIVE, 5, 51);
    const std::string before = show_raw(a) + show_raw(b);
    t_DECIMAL result;
    decadd(&a, &b, &result);
    decsub(&a, &b, &result);
    deccmp(&a, &b);
    EXPECT_EQ(show_raw(a) + show_raw(b), before);
}

TEST(Decsub, minuend_and_subtrahend_may_be_one_object)
{
    t_DECIMAL x = record(1, DEC_NEGATIVE, {12, 34});
    EXPECT_EQ(decsub(&x, &x, &x), DEC_OK);
    EXPECT_EQ(show(x), "0:+:");
}

TEST(Decsub, result_may_be_the_subtrahend)
{
    const t_DECIMAL a = record(1, DEC_POSITIVE, {5});
    t_DECIMAL b = record(1, DEC_POSITIVE, {7});
    EXPECT_EQ(decsub(&a, &b, &b), DEC_OK);
    EXPECT_EQ(show(b), "1:-:2");
}

TEST(Decadd, value_doubled_in_place)
{
    t_DECIMAL x = record(1, DEC_POSITIVE, {60});
    EXPECT_EQ(decadd(&x, &x, &x), DEC_OK);
    EXPECT_EQ(show(x), "2:+:1,20");
}

TEST(Decadd, largest_real_and_itself_overflow_with_exponent_63)
{
    t_DECIMAL result;
    EXPECT_EQ(decadd(&c_dec_huge, &c_dec_huge, &result), DEC_OVERFLOW);
    EXPECT_EQ(result.dec_exp, DEC_EXP_MAX);
}
