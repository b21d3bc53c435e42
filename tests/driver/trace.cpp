// SPDX-License-Identifier: MIT
//
// The trace of a call on standard error, to the byte: what each level shows, values after the call, and the level's
// changes.
#include <gtest/gtest.h>

#include "driver/traced_call.h"

namespace driver {
namespace {

using namespace harness;

// ---- Levels below 2 -----------------------------------------------------------------------------------------------

TEST(Trace, level_0_writes_nothing)
{
    const std::vector<Argument> arguments = {integer(1).by_ref(), real("2").by_ref(), string("c").by_ref(),
                                             real("4").by_ref()};
    EXPECT_EQ(trace(0, "references", arguments, {step(EDIT)}), "");
    EXPECT_EQ(trace(0, "two", {integer(1)}), "");
    EXPECT_EQ(trace(0, "none", {integer(1)}), "");
    EXPECT_EQ(trace(0, "no such function"), "");
    EXPECT_EQ(trace(0, "kind_12", {integer(1)}), "");
    EXPECT_EQ(trace(0, "none", std::vector<Argument>(51, integer(1))), "");
}

TEST(Trace, level_1_shows_the_call_and_its_return_code)
{
    EXPECT_EQ(trace(1, "none", {}, {step(RETURN, -7)}), "\ncalling none, argc = 0\nreturn code is -7\n");
    EXPECT_EQ(trace(1, "two", {integer(1), integer(2)}, {step(RETURN, INT32_MAX)}),
              "\ncalling two, argc = 2\nreturn code is 2147483647\n");
    EXPECT_EQ(trace(1, "RealArray", {reals({"1", "2", "3"}).by_ref()}, {step(EDIT)}), called("RealArray", 1, ""));
}

TEST(Trace, level_1_shows_nothing_of_a_refused_call)
{
    for (const int level : {1, -1}) {
        EXPECT_EQ(trace(level, "two", {integer(1)}), "");
        EXPECT_EQ(trace(level, "two", {integer(1), string("a")}), "");
        EXPECT_EQ(trace(level, "none", {integer(1)}), "");
        EXPECT_EQ(trace(level, "no such function"), "");
        EXPECT_EQ(trace(level, "none", std::vector<Argument>(51, integer(1))), "");
    }
}

TEST(Trace, negative_level_shows_calls_only)
{
    for (const int level : {-1, -4, INT32_MIN}) {
        EXPECT_EQ(trace(level, "two", {integer(1), integer(2)}, {step(RETURN, 5)}),
                  "\ncalling two, argc = 2\nreturn code is 5\n");
        EXPECT_EQ(trace(level, "IntArray", {integers({1, 2}).by_ref()}), called("IntArray", 1, ""));
    }
}

TEST(Trace, function_runs_between_the_two_lines)
{
    EXPECT_EQ(trace(1, "none", {}, {step(SEE)}), "\ncalling none, argc = 0\nnone #14\nreturn code is 0\n");
    EXPECT_EQ(trace(2, "RealByReference", {real("2.5").by_ref()}, {step(FUNCTION_INFO)}),
              "\ncalling RealByReference, argc = 1\n real_reference = 2.5\nname RealByReference, argc 1\n"
              "return code is 0\n real_reference = 2.5\n");
}

TEST(Trace, each_call_is_shown)
{
    Session session(Layout::layout_64, traced(1));
    session.call("none");
    session.call("none");
    EXPECT_EQ(session.output(), called("none", 0, "") + called("none", 0, ""));
}

// ---- Level 2: values after the call -------------------------------------------------------------------------------

TEST(Trace, values_after_the_call_are_those_passed_by_reference)
{
    const std::vector<Argument> arguments = {integer(1).by_ref(), real("2").by_ref(), string("c", 5).by_ref(),
                                             real("4")};
    EXPECT_EQ(trace(2, "references", arguments, {step(EDIT)}),
              called("references", 4, " a = 1\n b = 2\n c = \"c\"\n d = 4\n", " a = 3\n b = 4\n c = \"E+\"\n"));
}

TEST(Trace, values_after_the_call_leave_out_kinds_that_do_not_go_back)
{
    EXPECT_EQ(trace(2, "IntByValue", {integer(1).by_ref()}), called("IntByValue", 1, " int_value = 1\n"));
    EXPECT_EQ(trace(2, "RealByValue", {real("1").by_ref()}), called("RealByValue", 1, " real_value = 1\n"));
    EXPECT_EQ(trace(2, "zString", {string("a").by_ref()}), called("zString", 1, " text = \"a\"\n"));
}

TEST(Trace, values_after_the_call_have_the_form_of_those_before)
{
    const std::vector<Argument> arguments = {reals(std::vector<std::string>{"1", "2"}).by_ref(), integer(3).by_ref()};
    EXPECT_EQ(trace(2, "VarArg", arguments, {step(EDIT)}),
              called("VarArg", 2, " values = array [2]\n  [ 0] 1\n  [ 1] 2\n values = 3\n",
                     " values = array [2]\n  [ 0] 2\n  [ 1] 4\n values = 7\n"));
    EXPECT_EQ(trace(2, "StringArray", {strings({"ab", "c"}, 2).by_ref()}, {step(EDIT)}),
              called("StringArray", 1, " string_array = array [2]\n  [ 0] \"ab\"\n  [ 1] \"c\"\n",
                     " string_array = array [2]\n  [ 0] \"E\"\n  [ 1] \"E+\"\n"));
}

TEST(Trace, values_after_the_call_are_what_the_function_left)
{
    // The caller gets the largest REAL instead.
    EXPECT_EQ(trace(2, "RealByReference", {real("2").by_ref()}, {set_double(0, 0, 1e300)}),
              called("RealByReference", 1, " real_reference = 2\n", " real_reference = 1e+300\n"));
}

TEST(Trace, values_after_the_call_are_counted_anew)
{
    Session session(Layout::native, traced(2));
    const std::vector<Argument> arguments = {reals({"1", "2", "3"}).by_ref()};
    const int32_t elcnt = 40 + 24 + 20; // its offset in the descriptor of argument 1
    session.call("RealArray", arguments, {step(EDIT), step(POKE, elcnt, 2)});
    EXPECT_EQ(session.output(), called("RealArray", 1, " real_array = array [3]\n  [ 0] 1\n  [ 1] 2\n  [ 2] 3\n",
                                       " real_array = array [2]\n  [ 0] 2\n  [ 1] 4\n"));
}

TEST(Trace, value_that_cannot_go_back_is_shown_before_the_call_fails)
{
    Session session(Layout::native, traced(2));
    const std::vector<Argument> arguments = {integer(1).by_ref(), integer(2).by_ref(), integer(3).by_ref()};
    EXPECT_EQ(session.call("three", arguments, {step(RETYPE, 1, 5)}), -1);
    EXPECT_EQ(session.output(), called("three", 3, " a = 1\n b = 2\n c = 3\n", " b = 2\n"));
}

// ---- The level is read at each test -------------------------------------------------------------------------------

TEST(Trace, level_set_by_the_function_counts_from_then_on)
{
    const std::vector<Argument> arguments = {real("2").by_ref()};
    EXPECT_EQ(trace(0, "RealByReference", arguments, {step(LEVEL, 1)}), "return code is 0\n");
    EXPECT_EQ(trace(0, "RealByReference", arguments, {step(LEVEL, 2)}), "return code is 0\n real_reference = 2\n");
    EXPECT_EQ(trace(1, "RealByReference", arguments, {step(LEVEL, 0)}), "\ncalling RealByReference, argc = 1\n");
    EXPECT_EQ(trace(2, "RealByReference", arguments, {step(LEVEL, -1)}),
              called("RealByReference", 1, " real_reference = 2\n"));
}

TEST(Trace, level_set_by_a_function_stays_for_the_next_call)
{
    Session session;
    session.call("none", {}, {step(LEVEL, 1)});
    session.call("none", {}, {step(LEVEL, 0)});
    session.call("none");
    EXPECT_EQ(session.output(), "return code is 0\n\ncalling none, argc = 0\n");
}

// ---- Nothing changes by being shown -------------------------------------------------------------------------------

class Untouched : public testing::TestWithParam<int> {};

TEST_P(Untouched, call_does_the_same_at_every_level)
{
    const std::vector<Argument> arguments = {integers({1, 2}).by_ref(), real("2").by_ref(), string("c", 5).by_ref(),
                                             real("4")};
    Session plain;
    Session session(Layout::native, traced(GetParam()));
    EXPECT_EQ(plain.call("references", arguments, {step(EDIT), step(RETURN, 3)}), 3);
    EXPECT_EQ(session.call("references", arguments, {step(EDIT), step(RETURN, 3)}), 3);
    EXPECT_TRUE(session.block.bytes().substr(data_offset) == plain.block.bytes().substr(data_offset));
    for (const int32_t expected : {8, 9, 7}) {
        const char *const function = expected == 7 ? "unknown" : "two";
        EXPECT_EQ(session.call(function, expected == 8 ? std::vector{string("a")} : std::vector{integer(1)}),
                  expected);
    }
}

INSTANTIATE_TEST_SUITE_P(Trace, Untouched, testing::Values(-1, 1, 2, 3, 4, 5, INT32_MAX));

} // namespace
} // namespace driver
