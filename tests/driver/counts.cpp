// SPDX-License-Identifier: MIT
//
// How many arguments and elements a call may have, and what is refused before the function is called.
#include <gtest/gtest.h>

#include "driver/session.h"

namespace driver {
namespace {

using namespace harness;

constexpr int32_t called = 1000;
const Argument two_reals = reals(std::vector<std::string>{"1", "2"});

class Refusals : public testing::Test {
protected:
    // The return code; the function is called exactly when it is its own.
    int32_t call(const std::string &function, const std::vector<Argument> &arguments = {})
    {
        session_.prepare(function, arguments, {step(SEE), step(EDIT), step(RETURN, called)});
        return perform();
    }

    int32_t perform()
    {
        const std::string before = session_.block.bytes();
        const int32_t code = session_.host.call();
        const std::string output = session_.output();
        EXPECT_EQ(output.empty(), code != called) << output;
        session_.block.set(Head::retcode, 0);
        if (code != called) {
            EXPECT_TRUE(session_.block.bytes() == before) << "a refused call changed the segment";
        }
        return code;
    }

    int32_t call_with_argc(int64_t argc)
    {
        session_.prepare("VarArg", {}, {step(SEE), step(RETURN, called)});
        session_.block.set(Head::argc, argc);
        return perform();
    }

    static std::vector<Argument> many(size_t count) { return {count, integer(1)}; }

    Session session_;
};

TEST_F(Refusals, no_descriptor_at_all_is_9)
{
    for (const int64_t argc : {0, -1, -51, INT32_MIN})
        EXPECT_EQ(call_with_argc(argc), KA_WRONG_COUNT) << argc;
}

TEST_F(Refusals, fifty_arguments_are_accepted)
{
    EXPECT_EQ(call("VarArg", many(50)), called);
}

TEST_F(Refusals, more_than_fifty_arguments_are_606)
{
    EXPECT_EQ(call("VarArg", many(51)), KA_TOO_MANY_ARGS);
    EXPECT_EQ(call("VarArg", many(52)), KA_TOO_MANY_ARGS);
    EXPECT_EQ(call_with_argc(INT32_MAX), KA_TOO_MANY_ARGS);
}

TEST_F(Refusals, count_is_judged_before_the_name)
{
    EXPECT_EQ(call("no such function", many(51)), KA_TOO_MANY_ARGS);
    session_.prepare("VarArg", many(51));
    session_.block.set(0, Arg::type, 1);
    EXPECT_EQ(perform(), KA_TOO_MANY_ARGS);
}

TEST_F(Refusals, name_that_is_no_string_is_8)
{
    for (const int32_t type : {0, 1, 2, 4, -3, 259}) {
        session_.prepare("none");
        session_.block.set(0, Arg::type, type);
        EXPECT_EQ(perform(), KA_WRONG_TYPE) << type;
    }
}

TEST_F(Refusals, function_without_prototypes_takes_no_argument)
{
    EXPECT_EQ(call("none"), called);
    EXPECT_EQ(call("none", {integer(1)}), KA_WRONG_COUNT);
    EXPECT_EQ(call("none", many(50)), KA_WRONG_COUNT);
}

TEST_F(Refusals, negative_number_of_prototypes)
{
    // Without arguments the first prototype at the table's index decides.
    EXPECT_EQ(call("minus"), KA_WRONG_COUNT);
    EXPECT_EQ(call("minus_var_arg"), called);
    EXPECT_EQ(call("minus", {integer(1)}), KA_WRONG_COUNT);
    EXPECT_EQ(call("minus_var_arg", {integer(1)}), KA_WRONG_COUNT);
}

TEST_F(Refusals, number_of_arguments_must_be_that_of_the_prototypes)
{
    EXPECT_EQ(call("two", {}), KA_WRONG_COUNT);
    EXPECT_EQ(call("two", many(1)), KA_WRONG_COUNT);
    EXPECT_EQ(call("two", many(2)), called);
    EXPECT_EQ(call("two", many(3)), KA_WRONG_COUNT);
    EXPECT_EQ(call("two", many(50)), KA_WRONG_COUNT);
}

TEST_F(Refusals, first_prototype_that_is_no_var_arg_needs_an_argument)
{
    for (const char *function : {"IntByValue", "IntArray", "zString", "kind_12", "some", "between"})
        EXPECT_EQ(call(function), KA_WRONG_COUNT) << function;
}

TEST_F(Refusals, var_arg_takes_none_one_or_up_to_fifty)
{
    for (const size_t count : {0, 1, 2, 49, 50})
        EXPECT_EQ(call("VarArg", many(count)), called) << count;
}

TEST_F(Refusals, var_arg_behind_another_prototype_takes_the_rest)
{
    EXPECT_EQ(call("some", {}), KA_WRONG_COUNT);
    for (const size_t count : {1, 2, 3, 50})
        EXPECT_EQ(call("some", many(count)), called) << count;
    EXPECT_EQ(call("some", {string("a"), integer(1)}), KA_WRONG_TYPE);
    EXPECT_EQ(call("some", {integer(1), string("a"), real("1"), integer(1)}), called);
}

TEST_F(Refusals, prototypes_behind_a_var_arg_are_never_used)
{
    // behind: VarArg, then a zString that no integer would satisfy.
    for (const size_t count : {0, 1, 2, 3, 50})
        EXPECT_EQ(call("behind", many(count)), called) << count;
    EXPECT_EQ(call("between", many(1)), called);
    EXPECT_EQ(call("between", {integer(1), string("a"), string("b")}), called);
}

TEST_F(Refusals, arguments_are_judged_in_their_order)
{
    // The wrong type of the first is found before the missing second, and before the third that is too many.
    EXPECT_EQ(call("two", {string("a")}), KA_WRONG_TYPE);
    EXPECT_EQ(call("two", {string("a"), integer(1), integer(1)}), KA_WRONG_TYPE);
    EXPECT_EQ(call("two", {integer(1), integer(1), string("a")}), KA_WRONG_COUNT);
    EXPECT_EQ(call("late_12", {string("a"), integer(1)}), KA_WRONG_TYPE);
    EXPECT_EQ(call("late_12", {integer(1), integer(1)}), KA_BAD_PROTOTYPE);
}

TEST_F(Refusals, wrong_value_type_anywhere_is_8)
{
    EXPECT_EQ(call("references", {integer(1), real("1"), string("a"), integer(1)}), KA_WRONG_TYPE);
    EXPECT_EQ(call("references", {integer(1), real("1"), real("1"), real("1")}), KA_WRONG_TYPE);
    EXPECT_EQ(call("references", {integer(1), real("1"), string("a"), real("1")}), called);
    std::vector<Argument> arguments = many(50);
    arguments.back().type = 4;
    EXPECT_EQ(call("VarArg", arguments), KA_WRONG_TYPE);
}

TEST_F(Refusals, value_types_are_compared_in_full)
{
    for (const int32_t type : {-1, 0, 4, 5, 257, 65537, INT32_MIN, INT32_MAX}) {
        Argument argument = integer(1);
        argument.type = type;
        EXPECT_EQ(call("VarArg", {argument}), KA_WRONG_TYPE) << type;
        EXPECT_EQ(call("IntByValue", {argument}), KA_WRONG_TYPE) << type;
    }
}

TEST_F(Refusals, kind_that_does_not_exist_is_minus_1)
{
    for (const char *function : {"kind_10", "kind_12", "kind_-1", "kind_-3", "kind_largest", "kind_smallest"}) {
        EXPECT_EQ(call(function, {integer(1)}), KA_BAD_PROTOTYPE) << function;
        Argument odd = integer(1);
        odd.type = 0;
        EXPECT_EQ(call(function, {odd}), KA_BAD_PROTOTYPE) << function;
    }
}

// ---- Addresses --------------------------------------------------------------------------------------------------

class Outside : public testing::TestWithParam<const char *> {};

// Whatever else is wrong with the argument: its address is looked at first.
TEST_P(Outside, address_outside_the_segment_ends_the_host_before_the_argument_is_judged)
{
    Session session;
    Argument odd = integer(1);
    odd.type = 4;
    session.prepare(GetParam(), {odd});
    session.block.set(1, Arg::ptr, session.block.address(session.block.size()));
    session.host.ring();
    EXPECT_EQ(session.host.await_end(), killed(SIGABRT));
}

INSTANTIATE_TEST_SUITE_P(Refusals, Outside, testing::Values("IntByValue", "IntArray3", "kind_12"),
                         [](const auto &function) { return std::string(function.param); });

TEST_F(Refusals, addresses_behind_the_refusal_are_not_looked_at)
{
    const auto call_outside = [this](const char *function, size_t count, int outside) {
        std::vector<Argument> arguments = many(count);
        arguments[0] = string("a");
        session_.prepare(function, arguments);
        session_.block.set(outside, Arg::ptr, session_.block.address(-1));
        return perform();
    };
    EXPECT_EQ(call_outside("none", 1, 1), KA_WRONG_COUNT);
    EXPECT_EQ(call_outside("two", 2, 2), KA_WRONG_TYPE);
    EXPECT_EQ(call_outside("zString", 2, 2), KA_WRONG_COUNT);
    EXPECT_EQ(call_outside("VarArg", 51, 0), KA_TOO_MANY_ARGS);
    EXPECT_EQ(call_outside("no such function", 1, 1), KA_NO_FUNCTION);
}

// ---- Elements -----------------------------------------------------------------------------------------------------

TEST_F(Refusals, array_kinds_need_their_least_number_of_elements)
{
    EXPECT_EQ(call("IntArray3", {integers({1, 2})}), KA_TOO_FEW_ELEMENTS);
    EXPECT_EQ(call("IntArray3", {integers({1, 2, 3})}), called);
    EXPECT_EQ(call("IntArray3", {integers({1, 2, 3, 4})}), called);
    EXPECT_EQ(call("RealArray3", {two_reals}), KA_TOO_FEW_ELEMENTS);
    EXPECT_EQ(call("RealArray3", {reals({"1", "2", "3"})}), called);
    EXPECT_EQ(call("StringArray3", {strings({"a", "b"})}), KA_TOO_FEW_ELEMENTS);
    EXPECT_EQ(call("StringArray3", {strings({"a", "b", "c"})}), called);
    EXPECT_EQ(call("IntArray3", {integers({})}), KA_TOO_FEW_ELEMENTS);
}

TEST_F(Refusals, other_kinds_ignore_the_least_number)
{
    ASSERT_GT(functions[0].prototypes[0].min_elcnt, 1);
    EXPECT_EQ(call("VarArg", {integer(1)}), called);
    EXPECT_EQ(call("IntByValue", {integer(1)}), called);
    EXPECT_EQ(call("IntByReference", {integer(1)}), called);
    EXPECT_EQ(call("RealByValue", {integer(1)}), called);
    EXPECT_EQ(call("RealByReference", {real("1")}), called);
    EXPECT_EQ(call("zString", {string("a")}), called);
    EXPECT_EQ(call("String", {string("a")}), called);
}

TEST_F(Refusals, too_few_elements_come_before_the_wrong_type)
{
    EXPECT_EQ(call("IntArray3", {strings({"a", "b"})}), KA_TOO_FEW_ELEMENTS);
    EXPECT_EQ(call("IntArray3", {strings({"a", "b", "c"})}), KA_WRONG_TYPE);
    EXPECT_EQ(call("RealArray3", {integers({1, 2})}), KA_TOO_FEW_ELEMENTS);
    EXPECT_EQ(call("RealArray3", {integers({1, 2, 3})}), KA_WRONG_TYPE);
    EXPECT_EQ(call("StringArray3", {two_reals}), KA_TOO_FEW_ELEMENTS);
    EXPECT_EQ(call("StringArray3", {reals({"1", "2", "3"})}), KA_WRONG_TYPE);
}

TEST_F(Refusals, negative_number_of_elements_is_too_few_for_an_array_whatever_its_minimum)
{
    for (const char *function : {"IntArray3", "IntArray", "IntArrayBelow"}) {
        for (const int32_t elcnt : {-1, -3, -5, INT32_MIN}) {
            session_.prepare(function, {integers({1, 2, 3})});
            session_.block.set(1, Arg::elcnt, elcnt);
            EXPECT_EQ(perform(), KA_TOO_FEW_ELEMENTS) << function << " " << elcnt;
        }
    }
    for (const char *function : {"RealArray", "StringArray"}) {
        session_.prepare(function, {integers({1, 2, 3})});
        session_.block.set(1, Arg::elcnt, -1);
        EXPECT_EQ(perform(), KA_TOO_FEW_ELEMENTS) << function;
    }
}

TEST_F(Refusals, minimum_below_zero_asks_for_nothing)
{
    EXPECT_EQ(call("IntArrayBelow", {integer(1)}), called);
    session_.prepare("IntArrayBelow", {integer(1)}, {step(SEE), step(RETURN, called)});
    session_.block.set(1, Arg::elcnt, 0);
    EXPECT_EQ(perform(), called);
}

} // namespace
} // namespace driver
