// SPDX-License-Identifier: MIT
//
// REAL values from text and back.
#include "caller/hosts.h"

#include <cstring>

#include "ka/real.h"
#include "model/draw.h"

static std::string again(const std::string &text)
{
    t_DECIMAL value;
    char buffer[KA_REAL_TEXT];
    if (ka_real_from_text(text.data(), static_cast<int32_t>(text.size()), &value) != KA_DONE) return "refused";
    return ka_real_to_text(&value, buffer);
}

TEST(RealText, numbers_are_read_and_written_exactly)
{
    const char *cases[][2] = {
        {"0", "0"},
        {"-0", "0"},
        {"4.2", "4.2"},
        {"+4.20", "4.2"},
        {"-5", "-5"},
        {".5", "0.5"},
        {"5.", "5"},
        {"1e9", "1000000000"},
        {"1E-3", "0.001"},
        {"0.1", "0.1"},
        {"1234567890123456", "1234567890123456"},
        {"0.1234567890123456", "0.1234567890123456"},
        {"99999999999999.99", "99999999999999.99"},
        {"1e20", "1E+20"},
        {"-1.5e-100", "-1.5E-100"},
        {"9.9999999999999e125", "9.9999999999999E+125"},
    };
    for (const auto &[text, expected] : cases) {
        EXPECT_EQ(again(text), expected);
        EXPECT_EQ(again(expected), expected);
    }
}

// Any bytes are a record, which the program may have made: the number library decides.
TEST(RealText, is_what_the_number_library_gives)
{
    model::Draw draw;
    for (model::Rounds rounds(200000); rounds.more();) {
        t_DECIMAL value = draw.record({.null = false});
        if (draw.one_in(2)) value.dec_exp = static_cast<int16_t>(draw.between(-8, 9));
        if (draw.one_in(10))
            reinterpret_cast<unsigned char *>(&value)[draw.below(sizeof value)] =
                static_cast<unsigned char>(draw.bits());
        if (value.dec_pos == DEC_NULL) continue;
        char expected[200], got[200];
        memset(expected, '#', sizeof expected);
        memset(got, '#', sizeof got);
        m_gcvt(&value, 2 * DEC_DIGITS, expected);
        ASSERT_EQ(ka_real_to_text(&value, got), got);
        ASSERT_EQ(memcmp(got, expected, sizeof got), 0) << got << ", expected " << expected;
    }
}

TEST(RealText, what_is_not_wholly_a_number_is_refused)
{
    for (const char *text : {"", " ", "-", "+", ".", "-.", "e5", "1e", "1e+", " 1", "1 ", "1x", "1.2.3", "--1",
                             "0x10", "1,5", "inf", "nan", "1e9 "})
        EXPECT_EQ(again(text), "refused") << text;
    EXPECT_EQ(again(std::string("1\0", 2)), "refused");
}

TEST(RealText, what_no_real_can_hold_is_refused)
{
    for (const char *text : {"1e127", "-1e200", "1e-140", "1e1000", "1e99999999999"})
        EXPECT_EQ(again(text), "refused") << text;
}

TEST(RealText, refused_text_gives_null)
{
    t_DECIMAL value;
    char buffer[KA_REAL_TEXT];
    EXPECT_EQ(ka_real_from_text("x", 1, &value), KA_ARGUMENT);
    EXPECT_STREQ(ka_real_to_text(&value, buffer), "null");
    EXPECT_EQ(ka_real_from_text("1", -1, &value), KA_ARGUMENT);
}
