// SPDX-License-Identifier: MIT
//
// KaFuncInfo and KaArgInfo, asked by a function during its call.
#include <gtest/gtest.h>

#include "driver/session.h"

namespace driver {
namespace {

using namespace harness;

class Accessors : public testing::TestWithParam<Layout> {
protected:
    // The answers that the function gets.
    std::string told(const std::string &function, const std::vector<Argument> &arguments,
                     const std::vector<Step> &script)
    {
        EXPECT_EQ(session_.call(function, arguments, script), 0);
        return session_.output();
    }

    int32_t wide() const { return GetParam() == Layout::layout_64 ? 1 : 0; }
    int32_t argc_offset() const { return 36 + 8 * wide(); }
    int32_t type_offset(int n) const { return 40 + 8 * wide() + (24 + 8 * wide()) * n; }

    Session session_{GetParam()};
};
const auto layouts = testing::Values(Layout::native, Layout::layout_64);
const auto layout_name = [](const auto &layout) { return name_of(layout.param); };

constexpr const char *none = "no argument\n";

// ---- KaFuncInfo ---------------------------------------------------------------------------------------------------

class KaFuncInfo : public Accessors {};
INSTANTIATE_TEST_SUITE_P(Layouts, KaFuncInfo, layouts, layout_name);

TEST_P(KaFuncInfo, tells_the_name_and_the_number_of_arguments)
{
    EXPECT_EQ(told("none", {}, {step(FUNCTION_INFO)}), "name none, argc 0\n");
    EXPECT_EQ(told("two", {integer(1), integer(2)}, {step(FUNCTION_INFO)}), "name two, argc 2\n");
    const std::vector<Argument> fifty(50, real("1"));
    EXPECT_EQ(told("VarArg", fifty, {step(FUNCTION_INFO)}), "name VarArg, argc 50\n");
}

TEST_P(KaFuncInfo, argument_count_is_that_of_the_start_of_the_call)
{
    const std::vector<Step> script = {step(POKE, argc_offset(), 1), step(FUNCTION_INFO)};
    EXPECT_EQ(told("two", {integer(1), integer(2)}, script), "name two, argc 2\n");
}

TEST_P(KaFuncInfo, before_the_first_call_there_is_no_function)
{
    Session session(GetParam(), {.module = "driver", .environment = {"DRIVER_TELL_EARLY=1"}});
    session.host.await_idle();
    EXPECT_EQ(session.output(), "no function\nno argument\n");
}

// ---- KaArgInfo ----------------------------------------------------------------------------------------------------

class KaArgInfo : public Accessors {};
INSTANTIATE_TEST_SUITE_P(Layouts, KaArgInfo, layouts, layout_name);

TEST_P(KaArgInfo, finds_an_argument_by_its_position)
{
    const std::vector<Argument> arguments = {integer(1), real("2"), string("c", 5), real("4")};
    const std::vector<Step> script = {step(INFO_AT, 0), step(INFO_AT, 1), step(INFO_AT, 2), step(INFO_AT, 3)};
    EXPECT_EQ(told("references", arguments, script),
              "kind 2, name a, elcnt 1\nkind 5, name b, elcnt 1\nkind 8, name c, elcnt 1\nkind 5, name d, elcnt 1\n");
}

TEST_P(KaArgInfo, finds_an_argument_by_its_pointer)
{
    const std::vector<Argument> arguments = {integer(1), real("2"), string("c", 5), real("4")};
    const std::vector<Step> script = {step(INFO_OF, 3), step(INFO_OF, 0), step(INFO_OF, 2), step(INFO_OF, 1)};
    EXPECT_EQ(told("references", arguments, script),
              "kind 5, name d, elcnt 1\nkind 2, name a, elcnt 1\nkind 8, name c, elcnt 1\nkind 5, name b, elcnt 1\n");
}

TEST_P(KaArgInfo, pointer_into_an_argument_is_not_its_pointer)
{
    const std::vector<Step> script = {step(INFO_OF, 0, 4), step(INFO_OF, 0, -1), step(INFO_OF, 1, 8)};
    EXPECT_EQ(told("VarArg", {integers({1, 2}), reals({"1", "2", "3"})}, script), std::string(none) + none + none);
}

TEST_P(KaArgInfo, position_at_or_above_the_count_is_none)
{
    const std::vector<Argument> arguments = {integer(1), integer(2)};
    for (const int32_t position : {2, 3, 49, 50, 51, INT32_MAX, -1, INT32_MIN})
        EXPECT_EQ(told("two", arguments, {step(INFO_AT, position)}), none) << position;
}

TEST_P(KaArgInfo, call_without_arguments_has_none)
{
    for (const char *function : {"none", "VarArg"})
        EXPECT_EQ(told(function, {}, {step(INFO_AT, 0), step(INFO_AT, 1)}), std::string(none) + none);
}

TEST_P(KaArgInfo, null_pointer_is_position_0)
{
    const std::string first = "kind 4, name a, elcnt 1\n";
    const std::vector<Argument> arguments = {real("1"), real("2"), integer(3)};
    EXPECT_EQ(told("three", arguments, {step(INFO_NULL, 0)}), first);
    EXPECT_EQ(told("three", arguments, {step(INFO_NULL, 1)}), first);
    EXPECT_EQ(told("three", arguments, {step(INFO_NULL, 2)}), first);
}

TEST_P(KaArgInfo, smallest_position_wins_for_a_shared_pointer)
{
    session_.prepare("VarArg", {integer(1), integers({1, 2})}, {step(INFO_OF, 1)});
    session_.block.set(2, Arg::ptr, session_.block.get(1, Arg::ptr));
    EXPECT_EQ(session_.host.call(), 0);
    EXPECT_EQ(session_.output(), "kind 2, name values, elcnt 1\n");
}

// A function may write into its vector. The search asks both questions at each position before it goes on.
TEST_P(KaArgInfo, pointer_that_is_a_larger_position_wins)
{
    const std::vector<Argument> arguments = {integer(1), real("2"), string("c", 5), real("4")};
    EXPECT_EQ(told("references", arguments, {step(SET_POINTER, 0, 2), step(INFO_AT, 2)}),
              "kind 2, name a, elcnt 1\n");
}

TEST_P(KaArgInfo, pointer_that_is_a_smaller_position_loses)
{
    const std::vector<Argument> arguments = {real("1"), real("2"), integer(3)};
    EXPECT_EQ(told("three", arguments, {step(SET_POINTER, 2, 1), step(INFO_AT, 1)}), "kind 4, name b, elcnt 1\n");
}

TEST_P(KaArgInfo, several_elements_make_the_reference_kinds_arrays)
{
    const auto at_0 = [this](const char *function, const Argument &argument) {
        return told(function, {argument}, {step(INFO_AT, 0)});
    };
    EXPECT_EQ(at_0("IntByReference", integers({1, 2})), "kind 3, name int_reference, elcnt 2\n");
    EXPECT_EQ(at_0("RealByReference", reals({"1", "2", "3"})), "kind 6, name real_reference, elcnt 3\n");
    EXPECT_EQ(at_0("String", strings({"a", "b"})), "kind 9, name string, elcnt 2\n");
    EXPECT_EQ(at_0("IntByReference", integer(1)), "kind 2, name int_reference, elcnt 1\n");
    EXPECT_EQ(at_0("RealByReference", real("1")), "kind 5, name real_reference, elcnt 1\n");
    EXPECT_EQ(at_0("String", string("a")), "kind 8, name string, elcnt 1\n");
}

TEST_P(KaArgInfo, other_kinds_stay_what_they_are)
{
    const auto at_0 = [this](const char *function, const Argument &argument) {
        return told(function, {argument}, {step(INFO_AT, 0)});
    };
    EXPECT_EQ(at_0("IntByValue", integers({1, 2})), "kind 1, name int_value, elcnt 2\n");
    EXPECT_EQ(at_0("IntByValue", reals({"1", "2", "3"})), "kind 1, name int_value, elcnt 3\n");
    EXPECT_EQ(at_0("RealByValue", integers({1, 2})), "kind 4, name real_value, elcnt 2\n");
    EXPECT_EQ(at_0("zString", strings({"a", "b"})), "kind 7, name text, elcnt 2\n");
    EXPECT_EQ(at_0("IntArray", integer(1)), "kind 3, name int_array, elcnt 1\n");
    EXPECT_EQ(at_0("IntArray", integers({1, 2})), "kind 3, name int_array, elcnt 2\n");
    EXPECT_EQ(at_0("RealArray", real("1")), "kind 6, name real_array, elcnt 1\n");
    EXPECT_EQ(at_0("StringArray", string("a")), "kind 9, name string_array, elcnt 1\n");
}

TEST_P(KaArgInfo, var_arg_is_reported_as_the_kind_of_the_value_type)
{
    const std::vector<Argument> arguments = {integer(1),  integers({1, 2}),   real("1"), reals({"1", "2", "3"}),
                                             string("a"), strings({"a", "b"})};
    std::vector<Step> script;
    for (int32_t i = 0; i < 6; i++)
        script.push_back(step(INFO_AT, i));
    EXPECT_EQ(told("VarArg", arguments, script),
              "kind 2, name values, elcnt 1\nkind 3, name values, elcnt 2\nkind 5, name values, elcnt 1\n"
              "kind 6, name values, elcnt 3\nkind 8, name values, elcnt 1\nkind 9, name values, elcnt 2\n");
}

TEST_P(KaArgInfo, no_elements_are_reported_as_the_single_kind)
{
    session_.prepare("VarArg", {integer(1), real("2"), string("c")},
                     {step(INFO_AT, 0), step(INFO_AT, 1), step(INFO_AT, 2)});
    for (int n = 1; n <= 3; n++)
        session_.block.set(n, Arg::elcnt, 0);
    EXPECT_EQ(session_.host.call(), 0);
    EXPECT_EQ(session_.output(),
              "kind 2, name values, elcnt 0\nkind 5, name values, elcnt 0\nkind 8, name values, elcnt 0\n");
}

TEST_P(KaArgInfo, arguments_behind_a_var_arg_have_its_prototype)
{
    const std::vector<Argument> arguments = {integer(1), real("2"), integer(3), strings({"a", "b"})};
    EXPECT_EQ(told("some", arguments, {step(INFO_AT, 0), step(INFO_AT, 3), step(INFO_AT, 2), step(INFO_OF, 1)}),
              "kind 1, name first, elcnt 1\nkind 9, name rest, elcnt 2\n"
              "kind 2, name rest, elcnt 1\nkind 5, name rest, elcnt 1\n");
}

// The prototype is chosen by the argument's position, even where the VarArg before it took the argument.
TEST_P(KaArgInfo, prototypes_behind_a_var_arg_are_reported_by_position)
{
    EXPECT_EQ(told("behind", {integer(1), integers({1, 2}), real("3")},
                   {step(INFO_AT, 0), step(INFO_AT, 1), step(INFO_AT, 2)}),
              "kind 2, name rest, elcnt 1\nkind 7, name unused, elcnt 2\nkind 7, name unused, elcnt 1\n");
}

TEST_P(KaArgInfo, argument_gone_from_the_block_is_none)
{
    const std::vector<Step> script = {step(POKE, argc_offset(), 2), step(INFO_AT, 0), step(INFO_AT, 1),
                                      step(INFO_OF, 1)};
    EXPECT_EQ(told("VarArg", {real("1"), real("2")}, script),
              std::string("kind 5, name values, elcnt 1\n") + none + none);
}

TEST_P(KaArgInfo, argument_added_to_the_block_during_the_call_is_none)
{
    session_.prepare("VarArg", {real("1"), real("2")}, {step(POKE, argc_offset(), 3), step(INFO_AT, 1)});
    session_.block.set(Head::argc, 2);
    EXPECT_EQ(session_.host.call(), 0);
    EXPECT_EQ(session_.output(), none);
}

TEST_P(KaArgInfo, value_type_0_is_none)
{
    const std::vector<Step> script = {step(POKE, type_offset(1), 0), step(INFO_AT, 0)};
    EXPECT_EQ(told("VarArg", {integer(1)}, script), none);
    EXPECT_EQ(told("IntByValue", {integer(1)}, script), none);
}

TEST_P(KaArgInfo, unknown_value_type_keeps_the_kind_of_the_previous_answer)
{
    const std::vector<Argument> arguments = {real("1"), integer(2), integers({1, 2, 3})};
    const std::vector<Step> unknown = {step(POKE, type_offset(2), 4), step(POKE, type_offset(3), -9)};
    const auto told_after = [&](int32_t first) {
        std::vector<Step> script = unknown;
        for (const int32_t position : {first, 1, 2})
            script.push_back(step(INFO_AT, position));
        return told("VarArg", arguments, script);
    };
    EXPECT_EQ(told_after(0), "kind 5, name values, elcnt 1\nkind 5, name values, elcnt 1\n"
                             "kind 5, name values, elcnt 3\n");
}

TEST_P(KaArgInfo, unknown_value_type_has_kind_0_before_any_other_answer)
{
    EXPECT_EQ(told("VarArg", {integer(1)}, {step(POKE, type_offset(1), 4), step(INFO_AT, 0)}),
              "kind 0, name values, elcnt 1\n");
}

TEST_P(KaArgInfo, unknown_value_type_does_not_matter_to_other_kinds)
{
    const std::vector<Step> script = {step(POKE, type_offset(1), 4), step(INFO_AT, 0)};
    EXPECT_EQ(told("RealArray", {reals({"1", "2", "3"})}, script), "kind 6, name real_array, elcnt 3\n");
    EXPECT_EQ(told("RealByReference", {reals({"1", "2", "3"})}, script), "kind 6, name real_reference, elcnt 3\n");
}

TEST_P(KaArgInfo, kind_that_the_function_changed_is_reported_as_it_is_now)
{
    EXPECT_EQ(told("IntByValue", {integers({1, 2})}, {step(RETYPE, 0, 12), step(INFO_AT, 0)}),
              "kind 12, name int_value, elcnt 2\n");
    EXPECT_EQ(told("RealByValue", {integers({1, 2})}, {step(RETYPE, 0, 2), step(INFO_AT, 0)}),
              "kind 3, name real_value, elcnt 2\n");
}

TEST_P(KaArgInfo, next_answer_overwrites_the_record)
{
    EXPECT_EQ(told("references", {integers({1, 2}), real("2"), string("c"), real("4")}, {step(SAME_INFO, 0, 2)}),
              "kind 8, name c, elcnt 1\n");
}

TEST_P(KaArgInfo, failed_search_leaves_the_record)
{
    const std::vector<Argument> arguments = {integers({1, 2}), real("2"), string("c"), real("4")};
    EXPECT_EQ(told("references", arguments, {step(INFO_AT, 0), step(INFO_AT, 9), step(INFO_AT, 0)}),
              std::string("kind 3, name a, elcnt 2\n") + none + "kind 3, name a, elcnt 2\n");
}

} // namespace
} // namespace driver
