// SPDX-License-Identifier: MIT
//
// The helpers of ka/real.hpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "ka/real.hpp"
#include "model/crash.h"
#include "model/nearest.h"
#include "model/notation.h"

std::string text_in_cpp17(std::string_view text); // cpp17.cpp

namespace {

t_DECIMAL real(std::string_view text)
{
    t_DECIMAL value;
    EXPECT_EQ(ka::real_from_text(text, &value), REAL_OK) << text;
    return value;
}

} // namespace

TEST(RealFromText, reads_numbers_that_are_not_terminated)
{
    EXPECT_EQ(ka::real_to_text(real(std::string_view("12.345678").substr(0, 6))), "12.345");
    EXPECT_EQ(ka::real_to_text(real("  -7")), "-7");
}

TEST(RealFromText, empty_and_blank_text_is_no_number)
{
    for (std::string_view text : {std::string_view(), std::string_view(""), std::string_view("   ")}) {
        t_DECIMAL value = c_dec_one;
        EXPECT_EQ(ka::real_from_text(text, &value), REAL_NOT_NUMBER);
        EXPECT_EQ(m_sgn(&value), 0);
    }
}

TEST(RealFromText, gives_the_status_and_substitute_of_m_cv_asc)
{
    for (std::string_view text : {"12x4", "1e200", "-1e200", "1e-200", "1e1000"}) {
        t_DECIMAL expected;
        t_DECIMAL value = c_dec_one;
        const int status = m_cv_asc(text.data(), static_cast<int>(text.size()), &expected);
        EXPECT_NE(status, REAL_OK) << text;
        EXPECT_EQ(ka::real_from_text(text, &value), status) << text;
        EXPECT_EQ(m_cmp(&value, &expected), 0) << text;
    }
}

TEST(RealFromText, gives_the_nearest_real_of_any_number)
{
    model::Draw draw;
    for (model::Rounds rounds(100000); rounds.more();) {
        const std::string text = model::draw_number(draw);
        const model::Nearest expected = model::nearest(text);
        t_DECIMAL value;
        bool exact;
        ASSERT_EQ(ka::real_from_text(text, &value, &exact), expected.in_range ? REAL_OK : REAL_RANGE)
            << text << " in round " << rounds.number();
        ASSERT_EQ(exact, expected.in_range && expected.exact) << text << " in round " << rounds.number();
        ASSERT_TRUE(!expected.in_range || model::same(value, expected.record))
            << text << "\n  expected: " << model::show(expected.record) << "\n  got:      " << model::show(value)
            << "\n  in round " << rounds.number();
    }
}

// Decimals past the 18th change nothing in the characters allowed before and after a number.
TEST(RealFromText, takes_and_refuses_long_numbers_like_short_ones)
{
    const std::string zeros(30, '0');
    for (const char *after :
         {"",   "x",  "xy",   "x y",  " ",    "  5", ".",    "..",    ".5",   ".5.",  ".5.6", "e", "ex",
          "e-", "e5", "E+5x", "e5xy", "e5 y", "e 5", "e999", "e1000", "e-20", "e-2e", "ee",   "+", "-1"})
        for (const char *before : {"", "  ", "+", "-", " -", "--", "00", "x"}) {
            const std::string text = std::string(before) + "5" + after;
            const std::string longer = std::string(before) + "5" + zeros + after;
            t_DECIMAL expected;
            t_DECIMAL value;
            const int status = ka::real_from_text(text, &expected);
            if (status == REAL_OK) expected.dec_exp = static_cast<int16_t>(expected.dec_exp + 15);
            ASSERT_EQ(ka::real_from_text(longer, &value), status) << longer;
            EXPECT_TRUE(std::string_view(after) == ".5" || model::same(value, expected))
                << longer << " " << model::show(value) << ", not " << model::show(expected);
        }
}

TEST(RealToText, shows_every_decimal)
{
    for (const char *text : {"0", "-0.05", "1234567890123456", "0.1234567890123456", "-1.234567890123456E-69",
                             "9.9999999999999E+125", "1.234567890123456E-127"})
        EXPECT_EQ(ka::real_to_text(real(text)), text);
}

TEST(RealToText, null_is_fatal)
{
    const t_DECIMAL null = {.dec_exp = 0, .dec_pos = DEC_NULL, .dec_ndgts = 0, .dec_dgts = {}};
    const std::string message = "fatal math error cc #-2\nfile = math/src/math, line = [0-9]+\n";
    EXPECT_ABORT(static_cast<void>(ka::real_to_text(null)), message);
}

TEST(RealLess, sorts_by_value)
{
    std::vector<t_DECIMAL> values;
    for (const char *text : {"10", "-3", "9.99", "-3.01", "0", "1e20"})
        values.push_back(real(text));
    std::sort(values.begin(), values.end(), ka::RealLess());
    std::string order;
    for (const t_DECIMAL &value : values)
        order += ka::real_to_text(value) + " ";
    EXPECT_EQ(order, "-3.01 -3 0 9.99 10 1E+20 ");
}

TEST(RealLess, equal_values_are_not_less)
{
    const t_DECIMAL a = real("1.5");
    EXPECT_FALSE(ka::RealLess()(a, real("1.50")));
    EXPECT_FALSE(ka::RealLess()(real("1.50"), a));
}

TEST(RealHelpers, work_in_cpp17)
{
    EXPECT_EQ(text_in_cpp17("42.10"), "42.1");
    EXPECT_EQ(text_in_cpp17(""), "");
}
