// SPDX-License-Identifier: MIT
//
// How the function is found by its name.
#include <gtest/gtest.h>

#include "driver/session.h"

namespace driver {
namespace {

using namespace harness;

class Lookup : public testing::Test {
protected:
    // Calls the name as the caller spells it; returns what the function says, or the refusal's code.
    std::string find(std::string_view name)
    {
        const int32_t code = session_.call(name, {}, {step(SEE), step(RETURN, 1000)});
        const std::string output = session_.output();
        return code == 1000 ? output : std::to_string(code) + output;
    }

    Session session_;
};

TEST_F(Lookup, exact_name_finds_the_function)
{
    EXPECT_EQ(find("none"), "none #14\n");
    EXPECT_EQ(find("Case"), "Case #34\n");
    EXPECT_EQ(find("VarArg"), "VarArg #0\n");
}

TEST_F(Lookup, index_is_the_position_in_the_table)
{
    for (int32_t index = 0; index < function_count; index++) {
        const std::string name = functions[index].name;
        if (functions[index].count != 0 || index_of(name) != index) continue;
        EXPECT_EQ(find(name), name + " #" + std::to_string(index) + "\n");
    }
}

TEST_F(Lookup, case_counts)
{
    EXPECT_EQ(find("case"), "7");
    EXPECT_EQ(find("CASE"), "7");
    EXPECT_EQ(find("None"), "7");
}

TEST_F(Lookup, trailing_character_counts)
{
    EXPECT_EQ(find("none "), "7");
    EXPECT_EQ(find("nonesuch"), "7");
    EXPECT_EQ(find(std::string_view("none\0", 5)), "7");
}

TEST_F(Lookup, leading_character_counts)
{
    EXPECT_EQ(find(" none"), "7");
    EXPECT_EQ(find(std::string_view("\0none", 5)), "7");
}

TEST_F(Lookup, prefix_is_not_enough)
{
    EXPECT_EQ(find("non"), "7");
    EXPECT_EQ(find("n"), "7");
}

TEST_F(Lookup, empty_name_finds_only_a_function_of_that_name)
{
    EXPECT_EQ(find(""), " #33\n");
    Session other(Layout::native, {.module = "empty"});
    EXPECT_EQ(other.call(""), KA_NO_FUNCTION);
}

TEST_F(Lookup, first_of_two_functions_of_a_name_is_called)
{
    ASSERT_STREQ(functions[31].name, functions[32].name);
    EXPECT_EQ(find("twin"), "twin #31\n");
    EXPECT_EQ(session_.call("twin", {integer(1)}), KA_WRONG_COUNT); // the second would take it
}

TEST_F(Lookup, length_decides_where_the_name_ends)
{
    session_.prepare("nonesuch", {}, {step(SEE), step(RETURN, 1000)});
    session_.block.store(session_.at(0), 4);
    EXPECT_EQ(session_.host.call(), 1000);
    EXPECT_EQ(session_.output(), "none #14\n");
}

TEST_F(Lookup, length_that_no_name_has_finds_nothing)
{
    for (const int32_t length : {-1, -4, INT32_MIN, INT32_MAX, 65536}) {
        session_.prepare("none");
        session_.block.store(session_.at(0), length);
        EXPECT_EQ(session_.host.call(), KA_NO_FUNCTION) << length;
    }
    EXPECT_EQ(find("none"), "none #14\n");
}

TEST_F(Lookup, other_fields_of_the_name_do_not_count)
{
    session_.prepare("none", {}, {step(SEE), step(RETURN, 1000)});
    session_.block.set(0, Arg::ref, 1);
    session_.block.set(0, Arg::maxlen, -3);
    session_.block.set(0, Arg::elsz, -3);
    session_.block.set(0, Arg::elcnt, 0);
    EXPECT_EQ(session_.host.call(), 1000);
    EXPECT_EQ(session_.output(), "none #14\n");
    EXPECT_EQ(session_.block.get(0, Arg::ref), 1);
}

TEST_F(Lookup, name_need_not_be_aligned)
{
    session_.prepare("none", {integer(0)}, {step(SEE), step(RETURN, 1000)});
    std::memcpy(session_.block.at(data_offset + 101), session_.block.at(session_.at(0)), 8);
    session_.block.set(0, Arg::ptr, session_.block.address(data_offset + 101));
    session_.block.set(Head::argc, 1);
    EXPECT_EQ(session_.host.call(), 1000);
    EXPECT_EQ(session_.output(), "none #14\n");
}

TEST_F(Lookup, module_without_functions_knows_no_name)
{
    Session session(Layout::native, {.module = "empty"});
    for (const char *name : {"beyond", "", "none"})
        EXPECT_EQ(session.call(name), KA_NO_FUNCTION) << name;
    EXPECT_EQ(session.call("beyond", {integer(1)}), KA_NO_FUNCTION);
    EXPECT_EQ(session.output(), "");
    EXPECT_EQ(session.host.terminate(), exited(0));
}

} // namespace
} // namespace driver
