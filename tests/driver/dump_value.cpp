// SPDX-License-Identifier: MIT
//
// The routine that writes values, called directly by the module inside, which has the host linked in.
#include <gtest/gtest.h>

#include "driver/session.h"

namespace driver {
namespace {

using namespace harness;

class DumpValue : public testing::Test {
protected:
    // The text written for the value that the function receives.
    std::string dump(int32_t code, int32_t count, const std::string &function, const Argument &argument)
    {
        EXPECT_EQ(session_.call(function, {argument}, {step(DUMP, code, count)}), 0);
        return session_.output();
    }

    Session session_{Layout::native, {.module = "inside"}};
};

enum { BLOCK = 0, STRREC = 1, ZSTRING = 2, INT_DBL = 3, REAL_INT = 4, REAL_DBL = 5 };

TEST_F(DumpValue, one_value_stands_alone)
{
    EXPECT_EQ(dump(BLOCK, 1, "IntByValue", integer(-2147483647)), "-2147483647");
    EXPECT_EQ(dump(STRREC, 1, "String", string("abc", 10)), "\"abc\"");
    EXPECT_EQ(dump(ZSTRING, 1, "zString", string("abc", 10)), "\"abc\"");
    EXPECT_EQ(dump(INT_DBL, 1, "RealByValue", integer(7)), "7");
    EXPECT_EQ(dump(REAL_INT, 1, "IntByValue", real("-7.9")), "-7");
    EXPECT_EQ(dump(REAL_DBL, 1, "RealByValue", real("0.1")), "0.1");
}

TEST_F(DumpValue, several_values_have_an_index_and_a_line_each)
{
    EXPECT_EQ(dump(BLOCK, 3, "IntArray", integers({5, 6, 7})), "  [ 0] 5\n  [ 1] 6\n  [ 2] 7\n");
    EXPECT_EQ(dump(STRREC, 2, "StringArray", strings({"a", ""})), "  [ 0] \"a\"\n  [ 1] \"\"\n");
    EXPECT_EQ(dump(INT_DBL, 2, "RealByValue", integers({-1, 2})), "  [ 0] -1\n  [ 1] 2\n");
    EXPECT_EQ(dump(REAL_INT, 2, "IntByValue", reals(std::vector<std::string>{"3e9", "1.5"})),
              "  [ 0] 2147483647\n  [ 1] 1\n");
    EXPECT_EQ(dump(REAL_DBL, 2, "RealArray", reals(std::vector<std::string>{"1e100", "-0.5"})),
              "  [ 0] 1e+100\n  [ 1] -0.5\n");
}

TEST_F(DumpValue, zero_terminated_text_is_the_same_whatever_the_index)
{
    EXPECT_EQ(dump(ZSTRING, 3, "zString", string("abc")), "  [ 0] \"abc\"\n  [ 1] \"abc\"\n  [ 2] \"abc\"\n");
}

TEST_F(DumpValue, counts_below_1_write_nothing)
{
    for (const int32_t code : {0, 1, 2, 3, 4, 5, 6, -1}) {
        for (const int32_t count : {0, -1, INT32_MIN})
            EXPECT_EQ(dump(code, count, "IntByValue", integer(1)), "") << code << " " << count;
    }
}

TEST_F(DumpValue, unknown_code_is_an_error)
{
    for (const int32_t code : {6, -1, 255, 256, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(dump(code, 1, "IntByValue", integer(1)), "*ERROR*") << code;
        EXPECT_EQ(dump(code, 2, "IntByValue", integer(1)), "  [ 0] *ERROR*\n  [ 1] *ERROR*\n") << code;
    }
}

TEST_F(DumpValue, integers_need_not_be_aligned)
{
    EXPECT_EQ(dump(BLOCK, 2, "IntArray", integers({5, 6}).unaligned(3)), "  [ 0] 5\n  [ 1] 6\n");
}

} // namespace
} // namespace driver
