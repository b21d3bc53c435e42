// SPDX-License-Identifier: MIT
//
// A number of any length in text becomes the nearest REAL.
#include <cstring>
#include <gtest/gtest.h>

#include "ka/caller.h"
#include "model/nearest.h"
#include "model/notation.h"

using namespace model;

namespace {

struct Answer {
    int32_t status;
    t_DECIMAL value;
    int32_t exact;
};

Answer read(std::string_view text)
{
    Answer answer = {-1, {}, -1};
    answer.status = ka_real_read(text.data(), static_cast<int32_t>(text.size()), &answer.value, &answer.exact);
    return answer;
}

std::string read_as(std::string_view text)
{
    const Answer answer = read(text);
    return show(answer.value) + (answer.exact == 1 ? "" : answer.exact == 0 ? " rounded" : " ?");
}

std::string text_of(const Nearest &real)
{
    if (!real.in_range) return "null rounded";
    return show(real.record) + (real.exact ? "" : " rounded");
}

} // namespace

TEST(RealRead, gives_the_nearest_real_or_an_error)
{
    Draw draw;
    for (Rounds rounds(250000); rounds.more();) {
        const std::string text = draw_number(draw);
        const Nearest expected = nearest(text);
        const Answer got = read(text);
        ASSERT_EQ(got.status, expected.in_range ? KA_DONE : KA_ARGUMENT) << text << " in round " << rounds.number();
        ASSERT_TRUE(same(got.value, expected.in_range ? expected.record : null_record()) &&
                    got.exact == (expected.in_range && expected.exact))
            << text << "\n  expected: " << text_of(expected) << "\n  got:      " << read_as(text) << "\n  in round "
            << rounds.number();
    }
}

// Most numbers have up to 15 decimals and no exponent, and are read in few steps.
TEST(RealRead, gives_the_bytes_of_the_decimal_library)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        std::string text = draw.one_in(3) ? draw.one_in(2) ? "-" : "+" : "";
        const int count = draw.between(1, 17);
        const int point = draw.between(0, draw.one_in(3) ? count : 30);
        for (int i = 0; i < count; i++) {
            if (i == point) text += '.';
            text += static_cast<char>('0' + draw.below(draw.one_in(3) ? 1 : 10));
        }
        if (point == count) text += '.';
        t_DECIMAL expected;
        ASSERT_EQ(deccvasc(text.c_str(), static_cast<int>(text.size()), &expected), DEC_OK) << text;
        const Answer got = read(text);
        ASSERT_EQ(got.status, KA_DONE) << text;
        ASSERT_EQ(memcmp(&got.value, &expected, sizeof expected), 0) << text << " in round " << rounds.number();
    }
}

TEST(RealRead, decimals_past_the_eighteenth_count)
{
    EXPECT_EQ(read_as("123456789012345678"), "9:+:12,34,56,78,90,12,34,57 rounded");
    EXPECT_EQ(read_as("1234567890123456789"), "10:+:1,23,45,67,89,1,23,46 rounded");
    EXPECT_EQ(read_as("-12345678901234567890.5"), "10:-:12,34,56,78,90,12,34,57 rounded");
    EXPECT_EQ(read_as("100000000000000000000"), "11:+:1");
    EXPECT_EQ(read_as("1" + std::string(2000, '0') + "e-999"), "null rounded");
    EXPECT_EQ(read_as("1" + std::string(1090, '0') + "e-999"), "46:+:10");
}

// The ninth base-100 digit decides, whatever follows.
TEST(RealRead, ties_go_away_from_zero)
{
    EXPECT_EQ(read_as("0.12345678901234565"), "0:+:12,34,56,78,90,12,34,57 rounded");
    EXPECT_EQ(read_as("-0.12345678901234565"), "0:-:12,34,56,78,90,12,34,57 rounded");
    EXPECT_EQ(read_as("0.12345678901234564999999999999999999999"), "0:+:12,34,56,78,90,12,34,56 rounded");
    EXPECT_EQ(read_as("9.9999999999999950"), "1:+:10 rounded");
    EXPECT_EQ(read_as("9.999999999999994999999999999999999"), "1:+:9,99,99,99,99,99,99,99 rounded");
}

TEST(RealRead, tells_rounding_from_exactness)
{
    for (const char *exact : {"0", "-0.000", "1", "100", "0.1", "1234567890123456", "1234567890123456.000000000000",
                              "0.999999999999999900", "12345678901234.56e-20"})
        EXPECT_EQ(read(exact).exact, 1) << exact;
    // The same count of decimals, but the point is between the two of a pair.
    EXPECT_EQ(read("9.999999999999999").exact, 0);
    EXPECT_EQ(read("99.99999999999999").exact, 1);
    EXPECT_EQ(read("1.0000000000000000000000000000000000000000000001").exact, 0);
    EXPECT_EQ(read("nonsense").exact, 0);
}

TEST(RealRead, what_is_too_small_or_too_large_is_refused)
{
    EXPECT_EQ(read_as("1e-130"), "-64:+:1");
    EXPECT_EQ(read_as("9.9e-131"), "null rounded");
    EXPECT_EQ(read_as("99999999999999990e109"), "63:+:99,99,99,99,99,99,99,99");
    EXPECT_EQ(read_as("1e126"), "null rounded");
    EXPECT_EQ(read_as("1e1000"), "null rounded");
    EXPECT_EQ(read_as("123456789012345678901234567890e999"), "null rounded");
    EXPECT_EQ(read_as("1234567890123456789e4294967296"), "null rounded");
    EXPECT_EQ(read_as("1234567890123456789e-4294967296"), "null rounded");
    std::string longest(200000, '9');
    longest.append("e999");
    EXPECT_EQ(read_as(longest), "null rounded");
}

TEST(RealRead, exact_may_be_null)
{
    t_DECIMAL value;
    EXPECT_EQ(ka_real_read("2.50", 4, &value, nullptr), KA_DONE);
    EXPECT_EQ(show(value), "1:+:2,50");
    EXPECT_EQ(ka_real_from_text("12345678901234567890", 20, &value), KA_DONE);
    EXPECT_EQ(show(value), "10:+:12,34,56,78,90,12,34,57");
}
