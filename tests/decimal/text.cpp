// SPDX-License-Identifier: MIT
//
// Digit strings and text beside their vectors: buffers, limits, what is left unwritten.
#include <climits>
#include <cstring>
#include <gtest/gtest.h>

#include "model/guarded.h"
#include "model/notation.h"
#include "model/text.h"

using namespace model;

static const t_DECIMAL one_and_a_half = record(1, DEC_POSITIVE, {1, 50});

TEST(Dececvt, count_above_151_gives_151_digits)
{
    int decpt = 0;
    int sign = 0;
    for (const int count : {151, 152, 1000, INT_MAX}) {
        const std::string text = dececvt(&one_and_a_half, count, &decpt, &sign);
        EXPECT_EQ(text, "15" + std::string(149, '0')) << count;
        EXPECT_EQ(decpt, 1) << count;
    }
    EXPECT_EQ(strlen(dececvt(&one_and_a_half, 150, &decpt, &sign)), 150u);
}

TEST(Decfcvt, places_that_ask_for_more_than_151_digits_give_151)
{
    int decpt = 0;
    int sign = 0;
    for (const int places : {150, 151, 1000, INT_MAX - 1, INT_MAX})
        EXPECT_EQ(std::string(decfcvt(&one_and_a_half, places, &decpt, &sign)), "15" + std::string(149, '0'))
            << places;
    EXPECT_EQ(strlen(decfcvt(&one_and_a_half, 149, &decpt, &sign)), 150u);
}

TEST(Dececvt, zero_above_151_digits_gives_151_zeros)
{
    int decpt = 0;
    int sign = 0;
    EXPECT_EQ(std::string(dececvt(&c_dec_zero, 200, &decpt, &sign)), std::string(151, '0'));
}

TEST(Dececvt, strings_share_one_buffer)
{
    int decpt = 0;
    int sign = 0;
    char *first = dececvt(&one_and_a_half, 2, &decpt, &sign);
    EXPECT_EQ(decfcvt(&c_dec_one, 0, &decpt, &sign), first);
    EXPECT_EQ(decefcvt(&c_dec_one, 3, &decpt, &sign, 0), first);
    EXPECT_STREQ(first, "100");
}

TEST(Dececvt, rounding_reads_no_byte_past_the_digits)
{
    t_DECIMAL x = one_and_a_half;
    memset(x.dec_dgts + 2, 0xFF, 6);
    int decpt = 0;
    int sign = 0;
    EXPECT_STREQ(dececvt(&x, 1, &decpt, &sign), "2");
    EXPECT_STREQ(dececvt(&x, 8, &decpt, &sign), "15000000");
}

TEST(Dececvt, null_empties_the_buffer)
{
    int decpt = 0;
    int sign = 0;
    const t_DECIMAL null = null_record();
    char *text = dececvt(&one_and_a_half, 2, &decpt, &sign);
    dececvt(&null, 2, &decpt, &sign);
    EXPECT_STREQ(text, "");
}

TEST(Dectoasc, shows_at_most_151_digits)
{
    Guarded field(300);
    EXPECT_EQ(dectoasc(&one_and_a_half, field.data(), 300, 200), DEC_OK);
    EXPECT_EQ(field.text(), "1.5" + std::string(149, '0') + std::string(148, ' '));
}

TEST(Dectoasc, largest_places_fill_the_field)
{
    for (const int places : {1000, INT_MAX}) {
        Guarded field(20);
        EXPECT_EQ(dectoasc(&one_and_a_half, field.data(), 20, places), DEC_OK);
        EXPECT_EQ(field.text(), "1.500000000000000000") << places;
        EXPECT_TRUE(field.intact());
    }
}

TEST(Dectoasc, field_is_not_terminated)
{
    Guarded field(3);
    EXPECT_EQ(dectoasc(&one_and_a_half, field.data(), 3, 1), DEC_OK);
    EXPECT_EQ(field.text(), "1.5");
    EXPECT_TRUE(field.intact());
}

TEST(Dectoasc, negative_length_writes_nothing)
{
    for (const int length : {-1, -100, INT_MIN}) {
        Guarded field(16);
        dectoasc(&one_and_a_half, field.data() + 8, length, 2);
        dectoasc(&c_int32_min, field.data() + 8, length, -1);
        EXPECT_EQ(field.text(), std::string(16, '?')) << length;
        EXPECT_TRUE(field.intact());
    }
}

TEST(Dectoasc, value_stays_as_it_is)
{
    const t_DECIMAL x = record(2, DEC_NEGATIVE, {1, 23, 60});
    const std::string before = show_raw(x);
    Guarded field(4);
    dectoasc(&x, field.data(), 4, 1);
    EXPECT_EQ(show_raw(x), before);
}

static t_DECIMAL all_77()
{
    return record(77, DEC_NEGATIVE, std::vector<int>(8, 77));
}
static const char null_sign_alone[] = "exp 77 pos 255 ndgts 8 bytes 77,77,77,77,77,77,77,77";

TEST(Deccvasc, null_result_changes_the_sign_byte_alone)
{
    for (const std::string text : {"", "   "}) {
        t_DECIMAL result = all_77();
        EXPECT_EQ(deccvasc(text.data(), static_cast<int>(text.size()), &result), DEC_OK);
        EXPECT_EQ(show_raw(result), null_sign_alone);
    }
}

TEST(Deccvasc, refused_text_changes_the_sign_byte_alone)
{
    for (const std::string text : {"1.2.3", "12xy", "1e5xy", "1e1000", "5 5", "1e-1000  "}) {
        t_DECIMAL result = all_77();
        EXPECT_LT(deccvasc(text.data(), static_cast<int>(text.size()), &result), DEC_UNDERFLOW) << text;
        EXPECT_EQ(show_raw(result), null_sign_alone) << text;
    }
}

TEST(Deccvasc, negative_length_is_zero)
{
    for (const int length : {-1, -100, INT_MIN}) {
        t_DECIMAL result = all_77();
        EXPECT_EQ(deccvasc("-5", length, &result), DEC_OK);
        EXPECT_EQ(show(result), "0:+:") << length;
    }
}

TEST(Deccvasc, zero_byte_is_a_character_like_any_other)
{
    t_DECIMAL result = all_77();
    EXPECT_EQ(deccvasc("12\0", 3, &result), DEC_OK);
    EXPECT_EQ(show(result), "1:+:12");
    EXPECT_EQ(deccvasc("12\0"
                       "3",
                       4, &result),
              DEC_BAD_TEXT);
    EXPECT_EQ(deccvasc("12\0 3", 5, &result), DEC_OK);
    EXPECT_EQ(show(result), "1:+:12");
}

TEST(Deccvasc, only_the_space_is_a_blank)
{
    t_DECIMAL result = all_77();
    EXPECT_EQ(deccvasc("\t12", 3, &result), DEC_BAD_TEXT);
    EXPECT_EQ(deccvasc("12\n\n", 4, &result), DEC_BAD_TEXT);
    EXPECT_EQ(deccvasc("\t", 1, &result), DEC_OK);
    EXPECT_EQ(show(result), "0:+:");
}

TEST(Deccvasc, characters_above_127_are_stray)
{
    t_DECIMAL result = all_77();
    EXPECT_EQ(deccvasc("12\xB2", 3, &result), DEC_OK);
    EXPECT_EQ(show(result), "1:+:12");
    EXPECT_EQ(deccvasc("12\xC2\xB2", 4, &result), DEC_BAD_TEXT);
    EXPECT_EQ(deccvasc("\xFF\xFF", 2, &result), DEC_BAD_TEXT);
}

TEST(Deccvasc, long_fraction_underflows)
{
    // Lengths at which an exponent kept in 16 bits would come round again.
    for (const size_t zeros : {200u, 40000u, 65536u, 131072u, 131200u, 300000u}) {
        std::string text = "0.";
        text.append(zeros, '0');
        text += '1';
        t_DECIMAL result = all_77();
        EXPECT_EQ(deccvasc(text.data(), static_cast<int>(text.size()), &result), DEC_UNDERFLOW) << zeros;
        EXPECT_EQ(result.dec_exp, DEC_EXP_MIN) << zeros;
    }
}

TEST(Deccvasc, long_runs_of_characters_without_weight_are_read_through)
{
    t_DECIMAL result = all_77();
    std::string zeros(100000, '0');
    zeros += "12";
    EXPECT_EQ(deccvasc(zeros.data(), static_cast<int>(zeros.size()), &result), DEC_OK);
    EXPECT_EQ(show(result), "1:+:12");
    std::string digits = "1.";
    digits.append(100000, '3');
    EXPECT_EQ(deccvasc(digits.data(), static_cast<int>(digits.size()), &result), DEC_OK);
    EXPECT_EQ(show(result), "1:+:1,33,33,33,33,33,33,33");
    std::string blanks(100000, ' ');
    blanks += "7";
    EXPECT_EQ(deccvasc(blanks.data(), static_cast<int>(blanks.size()), &result), DEC_OK);
    EXPECT_EQ(show(result), "1:+:7");
}
