// SPDX-License-Identifier: MIT
//
// The current-call state that stays between calls, as the module inside writes it at its end: host and module are one
// program there, so what the host keeps to itself can be read.
#include <gtest/gtest.h>

#include "driver/session.h"

namespace driver {
namespace {

using namespace harness;

class State : public testing::Test {
protected:
    std::string at_end()
    {
        EXPECT_EQ(session_.host.terminate(), exited(0));
        const std::string output = session_.output();
        const size_t start = output.find("KaFunc ");
        return start == std::string::npos ? "not written: " + output : output.substr(start);
    }

    Session session_{Layout::native, {.module = "inside"}};
};

TEST_F(State, is_empty_before_the_first_call)
{
    session_.host.await_idle();
    EXPECT_EQ(at_end(), "KaFunc null\nKaFunc_arg_cnt 0\nKaCv 0 0 0 0 0 0\nKaAv\n");
}

TEST_F(State, codes_stay_and_the_vector_is_cleared_after_a_call)
{
    session_.call("mix_0", {real("1"), integer(2), string("t"), string("s"), real("5"), integer(6)});
    EXPECT_EQ(at_end(), "KaFunc mix_0\nKaFunc_arg_cnt 6\nKaCv 4 3 2 1 5 0\nKaAv\n");
}

TEST_F(State, vector_keeps_what_a_failed_call_had_converted)
{
    session_.call("three", {real("1"), integer(2), string("a")});
    EXPECT_EQ(at_end(), "KaFunc three\nKaFunc_arg_cnt 3\nKaCv 5 3 0 0 0 0\nKaAv 0 1\n");
}

TEST_F(State, integers_of_a_failed_call_stay_in_the_vector_too)
{
    session_.call("two", {integer(1), string("a")});
    EXPECT_EQ(at_end(), "KaFunc two\nKaFunc_arg_cnt 2\nKaCv 0 0 0 0 0 0\nKaAv 0\n");
}

TEST_F(State, code_is_written_before_the_buffer_is_asked_for)
{
    session_.prepare("references", {integer(1), real("2"), string("c"), real("4")});
    session_.block.set(3, Arg::elcnt, -1);
    EXPECT_EQ(session_.host.call(), KA_NO_MEMORY);
    EXPECT_EQ(at_end(), "KaFunc references\nKaFunc_arg_cnt 4\nKaCv 0 5 1 0 0 0\nKaAv 0 1\n");
}

TEST_F(State, failed_lookup_leaves_the_end_of_the_table_and_the_old_count)
{
    session_.call("two", {integer(1), integer(2)});
    session_.call("no such function", {integer(1), integer(2), integer(3)});
    EXPECT_EQ(at_end(), "KaFunc at the end of the table\nKaFunc_arg_cnt 2\nKaCv 0 0 0 0 0 0\nKaAv\n");
}

TEST_F(State, call_refused_before_the_lookup_changes_nothing)
{
    session_.call("two", {integer(1), integer(2)});
    session_.call("none", std::vector<Argument>(51, integer(1)));
    session_.block.set(Head::argc, 0);
    session_.host.call();
    EXPECT_EQ(at_end(), "KaFunc two\nKaFunc_arg_cnt 2\nKaCv 0 0 0 0 0 0\nKaAv\n");
}

TEST_F(State, call_without_arguments_has_the_count_0)
{
    session_.call("two", {integer(1), integer(2)});
    session_.call("none");
    EXPECT_EQ(at_end(), "KaFunc none\nKaFunc_arg_cnt 0\nKaCv 0 0 0 0 0 0\nKaAv\n");
}

TEST(KindNames, stand_in_the_order_of_the_kinds)
{
    Session session(Layout::native, {.module = "inside", .environment = {"DRIVER_TELL_NAMES=1"}});
    session.host.await_idle();
    EXPECT_EQ(session.output(), "0 VarArg\n1 IntByValue\n2 IntByReference\n3 IntArray\n4 RealByValue\n"
                                "5 RealByReference\n6 RealArray\n7 zString\n8 String\n9 StringArray\n-1 Unknown\n");
}

} // namespace
} // namespace driver
