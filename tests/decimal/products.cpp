// SPDX-License-Identifier: MIT
//
// Multiplication and division: what is written and read, byte by byte.
#include <gtest/gtest.h>

#include "model/exact.h"
#include "model/notation.h"

using namespace model;

static const char null_header_over_77[] = "exp 0 pos 255 ndgts 0 bytes 77,77,77,77,77,77,77,77";
static const char zero_header_over_77[] = "exp 0 pos 1 ndgts 0 bytes 77,77,77,77,77,77,77,77";

static const t_DECIMAL null = filled(9, DEC_NULL, 3, 5);
static const t_DECIMAL zero = filled(7, DEC_NEGATIVE, 0, 6);
static const t_DECIMAL three = record(1, DEC_NEGATIVE, {3});

template <auto operation>
static std::string over_77(const t_DECIMAL &a, const t_DECIMAL &b, int code)
{
    t_DECIMAL result = filled(9, DEC_NEGATIVE, 8, 77);
    EXPECT_EQ(operation(&a, &b, &result), code);
    return show_raw(result);
}

TEST(Decmul, null_result_is_0_255_0_over_untouched_digit_bytes)
{
    EXPECT_EQ(over_77<decmul>(null, three, DEC_OK), null_header_over_77);
    EXPECT_EQ(over_77<decmul>(three, null, DEC_OK), null_header_over_77);
    EXPECT_EQ(over_77<decmul>(null, zero, DEC_OK), null_header_over_77);
    EXPECT_EQ(over_77<decmul>(zero, null, DEC_OK), null_header_over_77);
}

TEST(Decmul, zero_result_is_0_1_0_over_untouched_digit_bytes)
{
    EXPECT_EQ(over_77<decmul>(zero, three, DEC_OK), zero_header_over_77);
    EXPECT_EQ(over_77<decmul>(three, zero, DEC_OK), zero_header_over_77);
}

TEST(Decdiv, null_result_is_0_255_0_over_untouched_digit_bytes)
{
    EXPECT_EQ(over_77<decdiv>(null, three, DEC_OK), null_header_over_77);
    EXPECT_EQ(over_77<decdiv>(three, null, DEC_OK), null_header_over_77);
    EXPECT_EQ(over_77<decdiv>(null, zero, DEC_OK), null_header_over_77);
    EXPECT_EQ(over_77<decdiv>(zero, null, DEC_OK), null_header_over_77);
}

TEST(Decdiv, division_by_zero_stores_0_1_0_over_untouched_digit_bytes)
{
    EXPECT_EQ(over_77<decdiv>(three, zero, DEC_DIVISION_BY_ZERO), zero_header_over_77);
    EXPECT_EQ(over_77<decdiv>(zero, zero, DEC_DIVISION_BY_ZERO), zero_header_over_77);
}

template <auto operation>
static void garbage_makes_no_difference(const char *expected)
{
    t_DECIMAL a = filled(1, DEC_POSITIVE, 1, 255);
    t_DECIMAL b = filled(1, DEC_POSITIVE, 1, 99);
    a.dec_dgts[0] = 6;
    b.dec_dgts[0] = 4;
    t_DECIMAL result;
    EXPECT_EQ(operation(&a, &b, &result), DEC_OK);
    EXPECT_EQ(show(result), expected);
}

TEST(Decmul, digit_bytes_past_the_digits_are_not_read)
{
    garbage_makes_no_difference<decmul>("1:+:24");
}

TEST(Decdiv, digit_bytes_past_the_digits_are_not_read)
{
    garbage_makes_no_difference<decdiv>("1:+:1,50");
}

// The result of the operation for 6 and 4 (or for 6 twice) when the result is the first, the second or both operands.
template <auto operation>
static void result_may_be_an_operand(const char *apart, const char *of_one)
{
    const t_DECIMAL six = record(1, DEC_NEGATIVE, {6});
    const t_DECIMAL four = record(1, DEC_POSITIVE, {4});
    t_DECIMAL x = six;
    EXPECT_EQ(operation(&x, &four, &x), DEC_OK);
    EXPECT_EQ(show(x), apart) << "the result is a";
    x = four;
    EXPECT_EQ(operation(&six, &x, &x), DEC_OK);
    EXPECT_EQ(show(x), apart) << "the result is b";
    t_DECIMAL other;
    EXPECT_EQ(operation(&six, &six, &other), DEC_OK);
    EXPECT_EQ(show(other), of_one) << "a is b";
    x = six;
    EXPECT_EQ(operation(&x, &x, &x), DEC_OK);
    EXPECT_EQ(show(x), of_one) << "all are one";
}

TEST(Decmul, result_may_be_an_operand)
{
    result_may_be_an_operand<decmul>("1:-:24", "1:+:36");
}

TEST(Decdiv, result_may_be_an_operand)
{
    result_may_be_an_operand<decdiv>("1:-:1,50", "1:+:1");
}

template <auto operation>
static void null_and_zero_operands_may_be_the_result(int code_of_zero)
{
    t_DECIMAL x = filled(9, DEC_NULL, 3, 77);
    EXPECT_EQ(operation(&x, &three, &x), DEC_OK);
    EXPECT_EQ(show_raw(x), null_header_over_77);
    x = filled(9, DEC_NULL, 3, 77);
    EXPECT_EQ(operation(&x, &x, &x), DEC_OK);
    EXPECT_EQ(show_raw(x), null_header_over_77);
    x = filled(9, DEC_NEGATIVE, 0, 77);
    EXPECT_EQ(operation(&three, &x, &x), code_of_zero);
    EXPECT_EQ(show_raw(x), zero_header_over_77);
    x = filled(9, DEC_NEGATIVE, 0, 77);
    EXPECT_EQ(operation(&x, &x, &x), code_of_zero);
    EXPECT_EQ(show_raw(x), zero_header_over_77);
}

TEST(Decmul, null_and_zero_operands_may_be_the_result)
{
    null_and_zero_operands_may_be_the_result<decmul>(DEC_OK);
}

TEST(Decdiv, null_and_zero_operands_may_be_the_result)
{
    null_and_zero_operands_may_be_the_result<decdiv>(DEC_DIVISION_BY_ZERO);
}

TEST(Decmul, operands_stay_as_they_are)
{
    const t_DECIMAL a = filled(1, DEC_POSITIVE, 8, 99);
    const t_DECIMAL b = filled(-1, DEC_NEGATIVE, 5, 51);
    const std::string before = show_raw(a) + show_raw(b);
    t_DECIMAL result;
    decmul(&a, &b, &result);
    EXPECT_EQ(show_raw(a) + show_raw(b), before);
}

TEST(Decdiv, operands_stay_as_they_are)
{
    const t_DECIMAL a = filled(1, DEC_POSITIVE, 8, 99);
    const t_DECIMAL b = filled(-1, DEC_NEGATIVE, 5, 51);
    const std::string before = show_raw(a) + show_raw(b);
    t_DECIMAL result;
    decdiv(&a, &b, &result);
    EXPECT_EQ(show_raw(a) + show_raw(b), before);
}

TEST(Decmul, largest_real_squared_overflows_with_exponent_63)
{
    t_DECIMAL result;
    EXPECT_EQ(decmul(&c_dec_huge, &c_dec_huge, &result), DEC_OVERFLOW);
    EXPECT_EQ(result.dec_exp, DEC_EXP_MAX);
}
