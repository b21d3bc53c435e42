// SPDX-License-Identifier: MIT
//
// The values that go back to the caller after the function has returned.
#include <gtest/gtest.h>

#include <cmath>

#include "driver/model.h"

namespace driver {
namespace {

using namespace harness;

class WriteBack : public testing::TestWithParam<Layout> {
protected:
    int64_t ref(int n) const { return session_.block.get(n, Arg::ref); }
    int32_t length(int n) const { return session_.block.load<int32_t>(session_.at(n)); }
    // Offset of argc in the header.
    int32_t argc_offset() const { return GetParam() == Layout::layout_64 ? 44 : 36; }
    int32_t descriptor(int n) const { return GetParam() == Layout::layout_64 ? 48 + 32 * n : 40 + 24 * n; }
    int32_t elcnt_offset(int n) const { return descriptor(n) + (GetParam() == Layout::layout_64 ? 24 : 20); }

    Session session_{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(Layouts, WriteBack, testing::Values(Layout::native, Layout::layout_64),
                         [](const auto &layout) { return name_of(layout.param); });

const std::vector<Step> change = {step(EDIT)};

TEST_P(WriteBack, reals_doubled_by_the_function_reach_the_caller)
{
    EXPECT_EQ(session_.call("RealByReference", {reals({"1.5", "-1.1", "7e10"}).by_ref()}, change), 0);
    EXPECT_EQ(reals_of(session_.block, 1), (std::vector<std::string>{"3", "-2.2", "140000000000"}));
    EXPECT_EQ(ref(1), 1);
}

// In pairs, of which one may take another way than the other.
TEST_P(WriteBack, reals_of_any_size_reach_the_caller_wherever_they_are)
{
    const std::vector<std::string> values = {"1.5", "0", "-7", "4e15", "4e16", "-3e20", "0", "0", "12345678.5"};
    const std::vector<std::string> doubled = {
        "3", "00", "-14", "8000000000000000", "80000000000000000", "-600000000000000000000", "00", "00", "24691357"};
    for (size_t count = 1; count <= values.size(); count++) {
        const auto end = static_cast<std::ptrdiff_t>(count);
        const std::vector<std::string> given(values.begin(), values.begin() + end);
        for (const int32_t words : {3, 5})
            for (const int32_t shift : {0, 1}) {
                const Argument argument = reals(given).by_ref().spaced(words).unaligned(shift);
                EXPECT_EQ(session_.call("RealByReference", {argument}, change), 0);
                EXPECT_EQ(reals_of(session_.block, 1),
                          std::vector<std::string>(doubled.begin(), doubled.begin() + end));
            }
    }
}

TEST_P(WriteBack, reals_passed_by_value_stay)
{
    session_.prepare("RealByReference", {reals({"1.5", "-1.1", "7e10"})}, change);
    const std::string before = session_.block.bytes().substr(data_offset);
    EXPECT_EQ(session_.host.call(), 0);
    EXPECT_TRUE(session_.block.bytes().substr(data_offset) == before);
}

TEST_P(WriteBack, happens_whatever_the_function_returns)
{
    for (const int32_t code : {1, -1, 2, 7, 606, INT32_MIN}) {
        const std::vector<Step> script = {step(EDIT), step(RETURN, code)};
        EXPECT_EQ(session_.call("RealArray", {real("21").by_ref()}, script), code);
        EXPECT_EQ(reals_of(session_.block, 1), std::vector<std::string>{"42"});
    }
}

TEST_P(WriteBack, return_code_is_handed_on_unchanged)
{
    for (const int32_t code : {0, 1, -1, 2, 7, 8, 9, 17, 18, 606, 255, 256, -200, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(session_.call("none", {}, {step(RETURN, code)}), code);
        EXPECT_EQ(session_.call("two", {integer(1), integer(2)}, {step(RETURN, code)}), code);
    }
}

TEST_P(WriteBack, unchanged_reals_come_back_rounded_to_14_decimals)
{
    EXPECT_EQ(session_.call("RealArray", {reals({"0.1234567890123456", "1234567890123456", "-5"}).by_ref()}), 0);
    EXPECT_EQ(reals_of(session_.block, 1), (std::vector<std::string>{"0.12345678901235", "1234567890123500", "-5"}));
}

struct Substitute {
    double value;
    t_DECIMAL stored;
};

TEST_P(WriteBack, double_that_no_real_can_hold_is_replaced)
{
    t_DECIMAL least = c_dec_huge;
    least.dec_pos = DEC_NEGATIVE;
    const Substitute all[] = {
        {std::nan(""), c_dec_zero}, {HUGE_VAL, c_dec_huge}, {-HUGE_VAL, c_dec_zero},
        {1e300, c_dec_huge},        {-1e300, least},        {1e-200, c_dec_zero},
        {-1e-200, c_dec_zero},
    };
    for (const Substitute &each : all) {
        const std::vector<Argument> arguments = {reals({"1", "2", "3"}).by_ref()};
        EXPECT_EQ(session_.call("RealByReference", arguments, {set_double(0, 1, each.value)}), 0);
        const t_DECIMAL stored = decimals_of(session_.block, 1)[1];
        EXPECT_EQ(std::memcmp(&stored, &each.stored, sizeof stored), 0) << each.value << " gives " << text_of(stored);
        EXPECT_EQ(reals_of(session_.block, 1)[0], "1");
        EXPECT_EQ(reals_of(session_.block, 1)[2], "3");
    }
}

TEST_P(WriteBack, string_set_by_the_string_functions_has_its_new_length)
{
    EXPECT_EQ(session_.call("String", {string("abc", 10).by_ref()}, {set_text(0, 0, "sevench")}), 0);
    EXPECT_EQ(session_.output(), "str2KaStr 0\n");
    EXPECT_EQ(strings_of(session_.block, 1), std::vector<std::string>{"sevench"});
}

TEST_P(WriteBack, each_string_of_an_array_has_its_own_length)
{
    const std::vector<Step> script = {set_text(0, 0, ""), set_text(0, 2, "longer")};
    EXPECT_EQ(session_.call("StringArray", {strings({"abc", "de", "f"}, 10).by_ref()}, script), 0);
    EXPECT_EQ(session_.output(), "str2KaStr 0\nstr2KaStr 0\n");
    EXPECT_EQ(strings_of(session_.block, 1), (std::vector<std::string>{"", "de", "longer"}));
}

TEST_P(WriteBack, string_passed_by_value_keeps_its_length_only)
{
    EXPECT_EQ(session_.call("String", {string("abc", 10)}, {set_text(0, 0, "12345")}), 0);
    EXPECT_EQ(length(1), 3);
    EXPECT_EQ(std::string(session_.block.at(session_.at(1) + 4), 5), "12345");
}

TEST_P(WriteBack, string_length_is_not_compared_with_maxlen)
{
    for (const int32_t written : {11, 1000000, -1, INT32_MIN}) {
        EXPECT_EQ(session_.call("String", {string("abc", 10).by_ref()}, {step(SET_LENGTH, 0, 0, written)}), 0);
        EXPECT_EQ(length(1), written);
    }
}

TEST_P(WriteBack, kinds_by_value_tell_the_caller_to_take_nothing)
{
    for (const char *function : {"IntByValue", "RealByValue"}) {
        EXPECT_EQ(session_.call(function, {real("3").by_ref()}, change), 0);
        EXPECT_EQ(ref(1), 0) << function;
        EXPECT_EQ(reals_of(session_.block, 1), std::vector<std::string>{"3"}) << function;
    }
    EXPECT_EQ(session_.call("zString", {string("abc").by_ref()}, change), 0);
    EXPECT_EQ(ref(1), 0);
    EXPECT_EQ(strings_of(session_.block, 1), std::vector<std::string>{"abc"});
}

TEST_P(WriteBack, other_kinds_leave_the_reference_flag_as_it_is)
{
    const std::pair<const char *, Argument> all[] = {
        {"VarArg", integer(1)},         {"VarArg", real("1")},    {"VarArg", string("a")},
        {"IntByReference", integer(1)}, {"IntArray", integer(1)}, {"RealByReference", real("1")},
        {"RealArray", real("1")},       {"String", string("a")},  {"StringArray", string("a")},
    };
    for (const auto &[function, argument] : all) {
        for (const int32_t flag : {1, -1, INT32_MIN}) {
            EXPECT_EQ(session_.call(function, {argument.by_ref(flag)}, change), 0);
            EXPECT_EQ(ref(1), flag) << function;
        }
    }
}

TEST_P(WriteBack, only_arguments_passed_by_reference_go_back)
{
    const std::vector<Argument> arguments = {real("1"), real("2").by_ref(), string("a", 5), string("b", 5).by_ref()};
    EXPECT_EQ(session_.call("VarArg", arguments, change), 0);
    EXPECT_EQ(reals_of(session_.block, 1), std::vector<std::string>{"1"});
    EXPECT_EQ(reals_of(session_.block, 2), std::vector<std::string>{"4"});
    EXPECT_EQ(length(3), 1);
    EXPECT_EQ(length(4), 2);
}

TEST_P(WriteBack, all_of_fifty_arguments_go_back)
{
    std::vector<Argument> arguments;
    for (int n = 1; n <= 50; n++)
        arguments.push_back(real(std::to_string(n)).by_ref());
    EXPECT_EQ(session_.call("VarArg", arguments, change), 0);
    for (int n = 1; n <= 50; n++)
        EXPECT_EQ(reals_of(session_.block, n), std::vector<std::string>{std::to_string(2 * n)});
}

// ---- The caller's descriptors are read again after the call -------------------------------------------------------

TEST_P(WriteBack, argument_released_by_the_function_itself_does_not_go_back)
{
    const std::vector<Argument> arguments = {real("1").by_ref(), real("2").by_ref()};
    EXPECT_EQ(session_.call("VarArg", arguments, {step(EDIT), step(UNREF, 1)}), 0);
    EXPECT_EQ(session_.output(), "unref 0\n");
    EXPECT_EQ(ref(1), 0);
    EXPECT_EQ(reals_of(session_.block, 1), std::vector<std::string>{"1"});
    EXPECT_EQ(reals_of(session_.block, 2), std::vector<std::string>{"4"});
}

TEST_P(WriteBack, arguments_behind_a_lowered_count_do_not_go_back)
{
    const std::vector<Argument> arguments = {real("1").by_ref(), real("2").by_ref(), integer(3).by_ref()};
    const std::vector<Step> script = {step(EDIT), step(POKE, argc_offset(), 2), step(RETURN, 5)};
    EXPECT_EQ(session_.call("VarArg", arguments, script), 5);
    EXPECT_EQ(reals_of(session_.block, 1), std::vector<std::string>{"2"});
    EXPECT_EQ(reals_of(session_.block, 2), std::vector<std::string>{"2"});
    EXPECT_EQ(session_.block.get(Head::argc), 2);
}

TEST_P(WriteBack, elements_behind_a_lowered_element_count_do_not_go_back)
{
    const std::vector<Step> script = {step(EDIT), step(POKE, elcnt_offset(1), 2)};
    EXPECT_EQ(session_.call("RealArray", {reals({"1", "2", "3"}).by_ref()}, script), 0);
    session_.block.set(1, Arg::elcnt, 3);
    EXPECT_EQ(reals_of(session_.block, 1), (std::vector<std::string>{"2", "4", "3"}));
}

// ---- A function that changes its own prototypes -------------------------------------------------------------------

TEST_P(WriteBack, kind_that_cannot_give_back_the_conversion_fails_with_minus_1)
{
    // The integer was converted to doubles for RealByValue; as RealByReference it would have to go back.
    const std::vector<Step> script = {step(EDIT), step(RETYPE, 1, 5), step(RETURN, 77)};
    const std::vector<Argument> arguments = {real("1").by_ref(), integer(2).by_ref(), integer(3).by_ref()};
    EXPECT_EQ(session_.call("three", arguments, script), KA_BAD_PROTOTYPE);
    EXPECT_EQ(ref(1), 0); // released before the failure
    EXPECT_EQ(ref(2), 1);
    EXPECT_EQ(integers_of(session_.block, 2), std::vector{2});
    EXPECT_EQ(integers_of(session_.block, 3), std::vector{7}); // changed in place by the function
    // The host goes on, with the changed prototype.
    EXPECT_EQ(session_.call("three", {integer(1), real("2"), integer(3)}, {step(RETURN, 78)}), 78);
    EXPECT_EQ(session_.call("three", {integer(1), integer(2), integer(3)}, {step(RETURN, 79)}), KA_WRONG_TYPE);
}

TEST_P(WriteBack, slots_behind_a_failed_one_are_not_given_back)
{
    const std::vector<Step> script = {step(EDIT), step(RETYPE, 0, 5), step(RETYPE, 1, 6)};
    const std::vector<Argument> arguments = {integer(1).by_ref(), real("2").by_ref(), integer(3)};
    EXPECT_EQ(session_.call("three", arguments, script), -1);
    EXPECT_EQ(integers_of(session_.block, 1), std::vector{1});
    EXPECT_EQ(reals_of(session_.block, 2), std::vector<std::string>{"2"});
}

TEST_P(WriteBack, private_text_cannot_go_back_as_a_string)
{
    const std::vector<Step> script = {step(RETYPE, 0, 8), step(RETURN, 77)};
    EXPECT_EQ(session_.call("zString", {string("abc").by_ref()}, script), -1);
    EXPECT_EQ(strings_of(session_.block, 1), std::vector<std::string>{"abc"});
    EXPECT_EQ(ref(1), 1);
}

TEST_P(WriteBack, changed_kind_does_not_matter_for_an_argument_passed_by_value)
{
    const std::vector<Step> script = {step(RETYPE, 1, 5), step(RETURN, 77)};
    EXPECT_EQ(session_.call("three", {integer(1), integer(2), integer(3)}, script), 77);
}

TEST_P(WriteBack, kind_changed_to_by_value_releases_the_argument)
{
    const std::vector<Step> script = {step(EDIT), step(RETYPE, 0, 4)};
    EXPECT_EQ(session_.call("RealByReference", {real("2").by_ref()}, script), 0);
    EXPECT_EQ(reals_of(session_.block, 1), std::vector<std::string>{"2"});
    EXPECT_EQ(ref(1), 0);
}

TEST_P(WriteBack, kind_changed_to_one_that_does_not_exist_lets_the_conversion_decide)
{
    for (const int32_t kind : {10, 11, 14, 17, -1, -3, INT32_MAX, INT32_MIN}) {
        Session session(GetParam());
        const std::vector<Step> script = {step(EDIT), step(RETYPE, 0, kind), step(RETURN, 5)};
        EXPECT_EQ(session.call("RealByReference", {real("2").by_ref()}, script), 5) << kind;
        EXPECT_EQ(reals_of(session.block, 1), std::vector<std::string>{"4"}) << kind;
        EXPECT_EQ(session.block.get(1, Arg::ref), 1) << kind;
        EXPECT_EQ(session.call("zString", {string("a").by_ref()}, script), KA_BAD_PROTOTYPE) << kind;
    }
}

TEST_P(WriteBack, kind_changed_to_by_reference_gives_doubles_of_reals_back)
{
    const std::vector<Step> script = {step(EDIT), step(RETYPE, 0, 5)};
    EXPECT_EQ(session_.call("RealByValue", {real("2").by_ref()}, script), 0);
    EXPECT_EQ(reals_of(session_.block, 1), std::vector<std::string>{"4"});
    EXPECT_EQ(ref(1), 1);
}

} // namespace
} // namespace driver
