// SPDX-License-Identifier: MIT
//
// Binary conversions, besides their vectors: limits, bytes, the workers of the public operations.
#include <climits>
#include <cmath>
#include <gtest/gtest.h>

#include "dec_int.h"
#include "model/binary.h"
#include "model/notation.h"

using namespace model;

static t_DECIMAL all_77()
{
    return record(77, DEC_NEGATIVE, std::vector<int>(8, 77));
}
static const char null_header_over_77[] = "exp 0 pos 255 ndgts 0 bytes 77,77,77,77,77,77,77,77";

TEST(Deccvint32, null_is_0_255_0_over_untouched_digit_bytes)
{
    t_DECIMAL result = all_77();
    EXPECT_EQ(deccvint32(INT32_MIN, &result), DEC_OK);
    EXPECT_EQ(show_raw(result), null_header_over_77);
}

TEST(Deccvint16, null_is_0_255_0_over_untouched_digit_bytes)
{
    t_DECIMAL result = all_77();
    EXPECT_EQ(deccvint16(INT16_MIN, &result), DEC_OK);
    EXPECT_EQ(show_raw(result), null_header_over_77);
}

TEST(Deccvint32, bytes_past_the_digits_are_cleared)
{
    t_DECIMAL result = all_77();
    deccvint32(100, &result);
    EXPECT_EQ(show_raw(result), "exp 2 pos 1 ndgts 1 bytes 1,0,0,0,0,0,0,0");
    result = all_77();
    deccvint32(0, &result);
    EXPECT_EQ(show_raw(result), "exp 0 pos 1 ndgts 0 bytes 0,0,0,0,0,0,0,0");
    result = all_77();
    deccvint32(INT32_MAX, &result);
    EXPECT_EQ(show_raw(result), show_raw(c_int32_max));
}

TEST(Deccvdbl, bytes_past_the_digits_are_cleared)
{
    t_DECIMAL result = all_77();
    deccvdbl(1.5, &result);
    EXPECT_EQ(show_raw(result), "exp 1 pos 1 ndgts 2 bytes 1,50,0,0,0,0,0,0");
    result = all_77();
    deccvdbl(0.0, &result);
    EXPECT_EQ(show_raw(result), "exp 1 pos 1 ndgts 0 bytes 0,0,0,0,0,0,0,0");
    result = all_77();
    deccvflt(1.5F, &result);
    EXPECT_EQ(show_raw(result), "exp 1 pos 1 ndgts 2 bytes 1,50,0,0,0,0,0,0");
}

TEST(Deccvdbl, extra_character_of_a_carry_is_no_digit)
{
    // The C library may answer 16 characters here; the record must hold what the first 15 say, and nothing past it.
    for (const double value : {1e-6, 1e200, 0.9999999999999999, 1e15, 1e-100}) {
        struct {
            t_DECIMAL record;
            uint8_t behind[8];
        } result = {all_77(), {9, 9, 9, 9, 9, 9, 9, 9}};
        deccvdbl(value, &result.record);
        EXPECT_TRUE(same(result.record, from_double(value, 15).record)) << value << ": " << show(result.record);
        EXPECT_EQ(result.record.dec_ndgts, 1) << value;
        for (const uint8_t byte : result.behind)
            EXPECT_EQ(byte, 9) << value;
    }
}

TEST(Deccvdbl, infinity_and_nan_overflow)
{
    for (const double value : {static_cast<double>(INFINITY), -static_cast<double>(INFINITY), nan("")}) {
        t_DECIMAL result = all_77();
        EXPECT_EQ(deccvdbl(value, &result), DEC_OVERFLOW) << value;
        EXPECT_TRUE(result.dec_ndgts >= 0 && result.dec_ndgts <= DEC_DIGITS) << value << ": " << show(result);
        result = all_77();
        EXPECT_EQ(deccvflt(static_cast<float>(value), &result), DEC_OVERFLOW) << value;
        EXPECT_TRUE(result.dec_ndgts >= 0 && result.dec_ndgts <= DEC_DIGITS) << value << ": " << show(result);
    }
}

TEST(Deccvdbl, denormal_values_underflow)
{
    t_DECIMAL result;
    EXPECT_EQ(deccvdbl(5e-324, &result), DEC_UNDERFLOW);
    EXPECT_EQ(result.dec_exp, DEC_EXP_MIN);
    EXPECT_EQ(deccvflt(1e-45F, &result), DEC_OK);
}

TEST(Deccvdbl, ends_of_the_exponents)
{
    t_DECIMAL result;
    EXPECT_EQ(deccvdbl(9e125, &result), DEC_OK);
    EXPECT_EQ(result.dec_exp, 63);
    EXPECT_EQ(deccvdbl(1.1e126, &result), DEC_OVERFLOW);
    EXPECT_EQ(result.dec_exp, 63);
    EXPECT_EQ(deccvdbl(1.1e-130, &result), DEC_OK);
    EXPECT_EQ(result.dec_exp, -64);
    EXPECT_EQ(deccvdbl(9e-131, &result), DEC_UNDERFLOW);
    EXPECT_EQ(result.dec_exp, -64);
}

TEST(Dectodbl, null_counts_as_positive)
{
    t_DECIMAL null = record(1, DEC_NULL, {5});
    double result = 0;
    EXPECT_EQ(dectodbl(&null, &result), DEC_OK);
    EXPECT_EQ(show(result), "5");
}

TEST(Dectodbl, value_stays_as_it_is)
{
    const t_DECIMAL x = record(-3, DEC_NEGATIVE, {12, 34});
    const std::string before = show_raw(x);
    double wide = 0;
    float narrow = 0;
    int32_t whole = 0;
    dectodbl(&x, &wide);
    dectoflt(&x, &narrow);
    dectoint32(&x, &whole);
    EXPECT_EQ(show_raw(x), before);
}

TEST(Dectodbl, is_computed_in_extended_precision_and_rounded_once)
{
    // Each of these comes out one unit off when the steps are rounded to doubles.
    int differ = 0;
    for (int exp = -30; exp <= 30; exp++) {
        const t_DECIMAL x = record(exp, DEC_POSITIVE, {12, 34, 56, 78, 90, 12, 34, 56});
        double stepwise = 0;
        for (int i = 7; i >= 0; i--)
            stepwise = (stepwise + x.dec_dgts[i]) / 100.0;
        for (int i = 0; i < exp; i++)
            stepwise *= 100.0;
        for (int i = 0; i > exp; i--)
            stepwise /= 100.0;
        double result = 0;
        dectodbl(&x, &result);
        EXPECT_EQ(show(result), show(to_double(x, 15))) << show(x);
        differ += result != stepwise;
    }
    EXPECT_GT(differ, 10);
}

TEST(Dectodbl, is_not_always_the_nearest_double)
{
    const t_DECIMAL x = record(-3, DEC_POSITIVE, {5, 21});
    double result = 0;
    EXPECT_EQ(dectodbl(&x, &result), DEC_OK);
    EXPECT_EQ(show(result), "5.2099999999999997e-08"); // nearest is 5.21e-08, the double after it
    EXPECT_EQ(show(std::nextafter(result, 1.0)), "5.21e-08");
}

TEST(Dectoflt, value_beyond_the_floats_is_infinite)
{
    const t_DECIMAL x = record(63, DEC_NEGATIVE, {1});
    float result = 0;
    EXPECT_EQ(dectoflt(&x, &result), DEC_OK);
    EXPECT_EQ(result, -INFINITY);
}

TEST(Deccvfix, takes_the_most_negative_integer_as_a_value)
{
    t_DECIMAL result = all_77();
    EXPECT_EQ(deccvfix(INT32_MIN, &result), DEC_OK);
    EXPECT_EQ(show_raw(result), show_raw(c_int32_min));
}

TEST(Dectofix, out_of_range_leaves_the_integer_unwritten)
{
    const t_DECIMAL x = record(6, DEC_POSITIVE, {1});
    int32_t result = 4711;
    EXPECT_EQ(dectofix(&x, &result), DEC_OVERFLOW);
    EXPECT_EQ(result, 4711);
    EXPECT_EQ(dectofix(&c_int32_min, &result), DEC_OK);
    EXPECT_EQ(result, INT32_MIN);
}

TEST(Deccvreal, takes_as_many_decimals_as_asked)
{
    t_DECIMAL result;
    EXPECT_EQ(deccvreal(&result, 2, 0.123456), DEC_OK);
    EXPECT_EQ(show(result), "0:+:12");
    EXPECT_EQ(deccvreal(&result, 6, 1.23456789), DEC_OK);
    EXPECT_EQ(show(result), "1:+:1,23,45,70");
    EXPECT_EQ(deccvreal(&result, 15, 1.5), DEC_OK);
    EXPECT_EQ(show(result), "1:+:1,50");
}

TEST(Dectoreal, uses_as_many_digits_as_asked)
{
    const t_DECIMAL x = record(1, DEC_NEGATIVE, {1, 25, 50});
    double result = 0;
    for (const auto &[digits, expected] : std::vector<std::pair<int, std::string>>{
             {0, "-0"}, {-1, "-0"}, {1, "-1"}, {2, "-1.25"}, {3, "-1.255"}, {15, "-1.255"}}) {
        EXPECT_EQ(dectoreal(&x, &result, digits), DEC_OK);
        EXPECT_EQ(show(result), expected) << digits;
    }
}
