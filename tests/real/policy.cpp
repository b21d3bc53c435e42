// SPDX-License-Identifier: MIT
//
// REAL operations beside their vectors: constants, aliasing, substitutes, buffers.
#include <climits>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>

#include "ka/real.h"
#include "model/exact.h"
#include "model/guarded.h"
#include "model/notation.h"

using namespace model;

static const t_DECIMAL one_and_a_half = record(1, DEC_POSITIVE, {1, 50});

TEST(MConstants, are_copied_into_the_result)
{
    t_DECIMAL r = one_and_a_half;
    EXPECT_EQ(m_zero(&r), REAL_OK);
    EXPECT_EQ(show(r), "0:+:");
    EXPECT_EQ(m_one(&r), REAL_OK);
    EXPECT_EQ(show(r), "1:+:1");
    EXPECT_EQ(m_huge(&r), REAL_OK);
    EXPECT_EQ(show(r), "63:+:99,99,99,99,99,99,99");
}

TEST(MConstants, most_negative_integer_has_a_record)
{
    EXPECT_EQ(show_raw(c_min_int32), "exp 5 pos 0 ndgts 5 bytes 21,47,48,36,48,0,0,0");
    EXPECT_NE(&c_min_int32, &c_int32_min);
}

TEST(MChs, result_may_be_the_operand)
{
    t_DECIMAL x = one_and_a_half;
    EXPECT_EQ(m_chs(&x, &x), REAL_OK);
    EXPECT_EQ(show(x), "1:-:1,50");
}

TEST(MChs, operand_stays_as_it_is)
{
    const t_DECIMAL x = one_and_a_half;
    t_DECIMAL r;
    m_chs(&x, &r);
    EXPECT_EQ(show(x), "1:+:1,50");
}

TEST(MLoad, null_field_becomes_the_library_zero)
{
    const uint8_t field[] = {0, 1, 2};
    t_DECIMAL r = one_and_a_half;
    EXPECT_EQ(m_load(field, sizeof field, &r), REAL_NULL_FIELD);
    EXPECT_EQ(show(r), "0:+:");
}

TEST(MToInt, stores_a_limit_where_the_library_stores_nothing)
{
    int32_t i = 4711;
    EXPECT_EQ(m_to_int(&c_dec_huge, &i), REAL_NOT_INTEGER);
    EXPECT_EQ(i, INT32_MAX);
}

TEST(MCvDbl, never_gives_null)
{
    for (const double d : {0.0, -0.0, 1.0, static_cast<double>(NAN), static_cast<double>(INFINITY), -1e308, 5e-324}) {
        t_DECIMAL r = null_record();
        m_cv_dbl(d, &r);
        EXPECT_NE(r.dec_pos, DEC_NULL) << d;
    }
}

TEST(MCvDbl, zero_of_either_sign_equals_zero)
{
    t_DECIMAL r;
    EXPECT_EQ(m_cv_dbl(0.0, &r), REAL_OK);
    EXPECT_EQ(m_cmp(&r, &c_dec_zero), 0);
    EXPECT_EQ(m_sgn(&r), 0);
    EXPECT_EQ(m_cv_dbl(-0.0, &r), REAL_OK);
    EXPECT_EQ(m_cmp(&r, &c_dec_zero), 0);
}

TEST(MToAsc, negative_length_writes_nothing)
{
    char buffer[4] = "~~~";
    EXPECT_EQ(m_to_asc(&c_dec_one, buffer + 2, -1, 0), buffer + 2);
    EXPECT_EQ(std::string(buffer), "~~~");
}

// Fields are loaded as they are: this one has a leading zero digit, and its 14 decimals cannot be rounded to.
TEST(MToDbl, digits_that_round_below_the_range_become_zero)
{
    const uint8_t field[] = {0x80, 0x00, 0x05, 0x63, 0x63, 0x63, 0x63, 0x63, 0x32};
    t_DECIMAL x;
    ASSERT_EQ(m_load(field, sizeof field, &x), REAL_OK);
    double d = 1;
    EXPECT_EQ(m_to_dbl(&x, &d), REAL_OK);
    EXPECT_EQ(d, 0);
    char text[32];
    EXPECT_STREQ(m_gcvt(&x, 14, text), "0");
}

TEST(MToAsc, buffer_of_one_more_than_the_field_is_enough)
{
    Guarded buffer(9);
    const t_DECIMAL x = record(3, DEC_NEGATIVE, {12, 34, 56});
    EXPECT_STREQ(m_to_asc(&x, buffer.data(), 8, 1), "-123456");
    Guarded tight(8);
    EXPECT_STREQ(m_to_asc(&x, tight.data(), 7, 0), "-123456");
    EXPECT_TRUE(buffer.intact() && tight.intact());
}

TEST(MEcvt, string_is_the_decimal_librarys)
{
    int decpt = 0;
    int sign = 0;
    char *text = m_ecvt(&one_and_a_half, 2, &decpt, &sign);
    EXPECT_EQ(text, dececvt(&c_dec_one, 2, &decpt, &sign));
    EXPECT_STREQ(text, "10");
    EXPECT_EQ(m_fcvt(&one_and_a_half, 2, &decpt, &sign), text);
}

TEST(MGcvt, trims_the_decimal_librarys_string_in_place)
{
    int decpt = 0;
    int sign = 0;
    char *text = m_ecvt(&c_dec_one, 5, &decpt, &sign);
    char buffer[16];
    m_gcvt(&one_and_a_half, 5, buffer);
    EXPECT_STREQ(text, "15");
}

TEST(MGcvt, needs_no_more_than_eight_characters_beside_the_digits)
{
    const t_DECIMAL longest = record(63, DEC_NEGATIVE, {98, 76, 54, 32, 10, 98, 76, 54});
    const t_DECIMAL smallest = record(-64, DEC_NEGATIVE, {98, 76, 54, 32, 10, 98, 76, 54});
    const t_DECIMAL below_one = record(0, DEC_NEGATIVE, {1, 23, 45});
    for (const t_DECIMAL &x : {longest, smallest, below_one}) {
        for (int ndigit = 1; ndigit <= 200; ndigit++) {
            Guarded buffer(ndigit + 8);
            const std::string text = m_gcvt(&x, ndigit, buffer.data());
            ASSERT_TRUE(buffer.intact()) << show(x) << " to " << ndigit << ": " << text;
        }
    }
}

TEST(MGcvt, shows_at_most_151_digits)
{
    char buffer[400];
    const t_DECIMAL x = record(63, DEC_POSITIVE, {98, 76});
    EXPECT_EQ(std::string(m_gcvt(&x, 300, buffer)), "9876" + std::string(122, '0'));
}

TEST(MCvAsc, stores_a_result_over_null)
{
    t_DECIMAL r = null_record();
    EXPECT_EQ(m_cv_asc("x12", 3, &r), REAL_NOT_NUMBER);
    EXPECT_EQ(show(r), "0:+:");
    r = null_record();
    EXPECT_EQ(m_cv_asc("1e-200", 6, &r), REAL_RANGE);
    EXPECT_EQ(show(r), "0:+:");
}
