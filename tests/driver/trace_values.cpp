// SPDX-License-Identifier: MIT
//
// The values that the trace shows before a call at level 2, to the byte: each kind, array form and scalar form.
#include <gtest/gtest.h>

#include <cstring>

#include "driver/traced_call.h"

namespace driver {
namespace {

using namespace harness;

TEST(Trace, level_2_shows_each_scalar_kind)
{
    EXPECT_EQ(trace(2, "IntByValue", {integer(-5)}), called("IntByValue", 1, " int_value = -5\n"));
    EXPECT_EQ(trace(2, "IntByValue", {real("-5.9")}), called("IntByValue", 1, " int_value = -5\n"));
    EXPECT_EQ(trace(2, "IntByReference", {integer(7)}), called("IntByReference", 1, " int_reference = 7\n"));
    EXPECT_EQ(trace(2, "RealByValue", {integer(7)}), called("RealByValue", 1, " real_value = 7\n"));
    EXPECT_EQ(trace(2, "RealByValue", {real("7.25")}), called("RealByValue", 1, " real_value = 7.25\n"));
    EXPECT_EQ(trace(2, "RealByReference", {real("1e20")}), called("RealByReference", 1, " real_reference = 1e+20\n"));
    EXPECT_EQ(trace(2, "zString", {string("a b", 9)}), called("zString", 1, " text = \"a b\"\n"));
    EXPECT_EQ(trace(2, "String", {string("a b", 9)}), called("String", 1, " string = \"a b\"\n"));
}

TEST(Trace, level_2_shows_each_array_kind)
{
    EXPECT_EQ(trace(2, "IntArray", {integers({1, -2})}),
              called("IntArray", 1, " int_array = array [2]\n  [ 0] 1\n  [ 1] -2\n"));
    EXPECT_EQ(trace(2, "RealArray", {reals({"1.5", "-2.25", "3"})}),
              called("RealArray", 1, " real_array = array [3]\n  [ 0] 1.5\n  [ 1] -2.25\n  [ 2] 3\n"));
    EXPECT_EQ(trace(2, "StringArray", {strings({"abc", "", "d"}, 5)}),
              called("StringArray", 1, " string_array = array [3]\n  [ 0] \"abc\"\n  [ 1] \"\"\n  [ 2] \"d\"\n"));
}

TEST(Trace, level_2_shows_no_values_of_a_call_without_arguments)
{
    EXPECT_EQ(trace(2, "none"), called("none", 0, ""));
    EXPECT_EQ(trace(2, "VarArg"), called("VarArg", 0, ""));
}

TEST(Trace, doubles_have_15_digits)
{
    const std::vector<std::string> values = {
        "0.1",  "0.12345678901234", "100000000000000", "12345678901234e5", "1e-5",
        "8.001"}; // with 16 digits the last would be 8.000999999999999
    EXPECT_EQ(trace(2, "RealArray", {reals(values)}),
              called("RealArray", 1,
                     " real_array = array [6]\n  [ 0] 0.1\n  [ 1] 0.12345678901234\n  [ 2] 100000000000000\n"
                     "  [ 3] 1.2345678901234e+18\n  [ 4] 1e-05\n  [ 5] 8.001\n"));
}

TEST(Trace, array_of_one_element_has_no_line_end)
{
    EXPECT_EQ(trace(2, "IntArray", {integer(7)}), called("IntArray", 1, " int_array = array [1]\n7"));
    EXPECT_EQ(trace(2, "arrays", {integer(7), real("1.5"), string("c")}),
              called("arrays", 3, " a = array [1]\n7 b = array [1]\n1.5 c = array [1]\n\"c\""));
    EXPECT_EQ(trace(2, "IntArray", {integer(7).by_ref()}, {step(EDIT)}),
              called("IntArray", 1, " int_array = array [1]\n7", " int_array = array [1]\n15"));
}

TEST(Trace, array_without_elements_shows_its_heading)
{
    EXPECT_EQ(trace(2, "IntArray", {integers({})}), called("IntArray", 1, " int_array = array [0]\n"));
    EXPECT_EQ(trace(2, "RealArray", {reals(std::vector<std::string>{})}),
              called("RealArray", 1, " real_array = array [0]\n"));
}

TEST(Trace, scalar_kind_shows_the_first_element_only)
{
    EXPECT_EQ(trace(2, "IntByReference", {integers({4, 5, 6})}), called("IntByReference", 1, " int_reference = 4\n"));
    EXPECT_EQ(trace(2, "RealByValue", {integers({4, 5, 6})}), called("RealByValue", 1, " real_value = 4\n"));
    EXPECT_EQ(trace(2, "RealByReference", {reals({"4", "5", "6"})}),
              called("RealByReference", 1, " real_reference = 4\n"));
    EXPECT_EQ(trace(2, "String", {strings({"abc", "d"})}), called("String", 1, " string = \"abc\"\n"));
    EXPECT_EQ(trace(2, "zString", {strings({"abc", "d"})}), called("zString", 1, " text = \"abc\"\n"));
}

// Behind the segment there is no zero byte in its last page, and then no page.
TEST(Trace, string_of_any_length_ends_with_the_segment)
{
    constexpr int32_t page_rest = 100;
    Session session(Layout::native, traced(2), 65536 - page_rest);
    session.host.await_idle();
    for (const int32_t length : {2, 3, INT32_MAX, -1, INT32_MIN}) {
        session.prepare("StringArray", {strings({"abc", "de"})});
        const int32_t second = session.block.size() - 4 - 2;
        const int32_t first = second - 8;
        session.block.set(1, Arg::ptr, session.block.address(first));
        session.block.set(1, Arg::elsz, 2);
        session.block.store(first, 3);
        session.block.store(second, length);
        std::memset(session.block.at(first + 4), 'x', 4);
        std::memset(session.block.at(second + 4), 'y', 2 + page_rest);
        EXPECT_EQ(session.host.call(), 0);
        EXPECT_EQ(session.output(),
                  called("StringArray", 1, " string_array = array [2]\n  [ 0] \"xxx\"\n  [ 1] \"yy\"\n"))
            << length;
    }
}

TEST(Trace, string_of_the_modules_own_may_be_longer_than_the_segment)
{
    EXPECT_EQ(trace(2, "String", {string("abc", 10).by_ref()}, {step(OWN_TEXT, 0, 0, 100000)}),
              called("String", 1, " string = \"abc\"\n", " string = \"" + std::string(100000, 'm') + "\"\n"));
}

// An empty buffer has no first element to show.
TEST(Trace, scalar_kind_without_elements_shows_no_value)
{
    EXPECT_EQ(trace(2, "String", {strings({}).by_ref()}), called("String", 1, " string = \n", " string = \n"));
    EXPECT_EQ(trace(2, "RealByValue", {integers({})}), called("RealByValue", 1, " real_value = \n"));
    EXPECT_EQ(trace(2, "IntByValue", {reals(std::vector<std::string>{})}),
              called("IntByValue", 1, " int_value = \n"));
    EXPECT_EQ(trace(2, "VarArg", {strings({})}), called("VarArg", 1, " values = \n"));
}

TEST(Trace, value_in_the_block_is_shown_also_without_elements)
{
    Session session(Layout::native, traced(2));
    session.prepare("two", {integer(5), integer(6)});
    session.block.set(1, Arg::elcnt, 0);
    session.block.set(2, Arg::elcnt, -3);
    EXPECT_EQ(session.host.call(), 0);
    EXPECT_EQ(session.output(), called("two", 2, " a = 5\n b = 6\n"));
}

TEST(Trace, var_arg_takes_the_form_of_the_number_of_elements)
{
    const std::vector<Argument> arguments = {
        integer(1), integers({1, 2}), real("1.5"), reals({"1", "2", "3"}), string("a", 4), strings({"a", "b"}, 4)};
    EXPECT_EQ(trace(2, "VarArg", arguments),
              called("VarArg", 6,
                     " values = 1\n values = array [2]\n  [ 0] 1\n  [ 1] 2\n values = 1.5\n"
                     " values = array [3]\n  [ 0] 1\n  [ 1] 2\n  [ 2] 3\n values = \"a\"\n"
                     " values = array [2]\n  [ 0] \"a\"\n  [ 1] \"b\"\n"));
}

TEST(Trace, each_value_has_the_name_of_its_prototype)
{
    EXPECT_EQ(trace(2, "some", {integer(1), real("2"), string("c")}),
              called("some", 3, " first = 1\n rest = 2\n rest = \"c\"\n"));
    // Behind a VarArg nothing but the VarArg counts.
    EXPECT_EQ(trace(2, "behind", {integer(1), integers({2, 3})}),
              called("behind", 2, " rest = 1\n rest = array [2]\n  [ 0] 2\n  [ 1] 3\n"));
}

TEST(Trace, indexes_are_two_places_wide_or_wider)
{
    std::string lines = " int_array = array [101]\n";
    std::vector<int32_t> values;
    for (int32_t i = 0; i <= 100; i++) {
        values.push_back(1000 - i);
        lines +=
            std::string("  [") + (i < 10 ? " " : "") + std::to_string(i) + "] " + std::to_string(1000 - i) + "\n";
    }
    EXPECT_EQ(trace(2, "IntArray", {integers(values)}), called("IntArray", 1, lines));
}

// The values are shown as they are in the segment, word after word, whatever the distance between the elements.
TEST(Trace, integers_apart_are_shown_word_by_word)
{
    EXPECT_EQ(trace(2, "IntArray", {integers({1, 2, 3}).spaced(2)}),
              called("IntArray", 1, " int_array = array [3]\n  [ 0] 1\n  [ 1] -1515870811\n  [ 2] 2\n"));
    EXPECT_EQ(trace(2, "IntArray", {integers({1, 2, 3}).unaligned(1)}),
              called("IntArray", 1, " int_array = array [3]\n  [ 0] 1\n  [ 1] 2\n  [ 2] 3\n"));
}

TEST(Trace, string_ends_with_its_length_or_a_zero_byte)
{
    const std::string zero("a\0c", 3);
    EXPECT_EQ(trace(2, "String", {string("abc", 10).unaligned(1)}), called("String", 1, " string = \"abc\"\n"));
    EXPECT_EQ(trace(2, "String", {string(zero)}), called("String", 1, " string = \"a\"\n"));
    EXPECT_EQ(trace(2, "zString", {string(zero)}), called("zString", 1, " text = \"a\"\n"));
    EXPECT_EQ(trace(2, "String", {string("", 10)}), called("String", 1, " string = \"\"\n"));
}

TEST(Trace, values_are_no_formats)
{
    EXPECT_EQ(trace(2, "zString", {string("%s %n %d")}), called("zString", 1, " text = \"%s %n %d\"\n"));
    EXPECT_EQ(trace(2, "String", {string("%s %n %d")}), called("String", 1, " string = \"%s %n %d\"\n"));
}

} // namespace
} // namespace driver
