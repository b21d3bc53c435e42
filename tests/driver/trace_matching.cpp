// SPDX-License-Identifier: MIT
//
// The trace at level 3, to the byte: how each argument met its prototype, and what was refused; and which of these
// lines a lower level shows.
#include <gtest/gtest.h>

#include <cstring>

#include "driver/session.h"

namespace driver {
namespace {

using namespace harness;

struct Shown {
    int32_t code;
    std::string text;
    bool operator==(const Shown &) const = default;
};
std::ostream &operator<<(std::ostream &out, const Shown &shown)
{
    return out << shown.code << " \"" << shown.text << "\"";
}

Shown shown(int level, const std::string &function, const std::vector<Argument> &arguments = {})
{
    Session session(Layout::native, traced(level));
    const int32_t code = session.call(function, arguments);
    return {code, session.output()};
}

std::string heading(const std::string &function, int argc)
{
    return "\nfunction name = \"" + function + "\", argc = " + std::to_string(argc) + "\n";
}

std::string calling(const std::string &function, int argc, const std::string &values)
{
    return "\ncalling " + function + ", argc = " + std::to_string(argc) + "\n" + values + "return code is 0\n";
}

TEST(TraceMatching, call_without_arguments_shows_its_function)
{
    EXPECT_EQ(shown(3, "none"), (Shown{0, heading("none", 0) + calling("none", 0, "")}));
}

TEST(TraceMatching, each_argument_is_shown_with_prototype_and_value_type)
{
    const std::vector<Argument> arguments = {integer(1), real("2").by_ref(), string("c", 5), real("4").by_ref(-1)};
    EXPECT_EQ(shown(3, "references", arguments),
              (Shown{0, heading("references", 4) +
                            " arg = a, IntByReference, CALL = INTEGER, elcnt = 1 (ByValue)\n"
                            " arg = b, RealByReference, CALL = REAL, elcnt = 1 (ByRef)\n"
                            " arg = c, String, CALL = STRING, elcnt = 1 (ByValue)\n"
                            " arg = d, RealByReference, CALL = REAL, elcnt = 1 (ByRef)\n" +
                            calling("references", 4, " a = 1\n b = 2\n c = \"c\"\n d = 4\n") + " b = 2\n d = 4\n"}));
}

TEST(TraceMatching, kinds_are_shown_by_name)
{
    const char *const names[] = {"VarArg",          "IntByValue", "IntByReference", "IntArray", "RealByValue",
                                 "RealByReference", "RealArray",  "zString",        "String",   "StringArray"};
    for (int kind = 0; kind < 10; kind++) {
        ASSERT_STREQ(functions[kind].name, names[kind]);
        Argument odd = integers({1, 2});
        odd.type = 4; // no kind takes it
        const std::string prototype = functions[kind].prototypes[0].name;
        const std::string line = " arg = " + prototype + ", " + names[kind] + ", CALL = , elcnt = 2 (ByValue)\n";
        EXPECT_EQ(shown(3, names[kind], {odd}), (Shown{8, heading(names[kind], 1) + line}));
    }
}

TEST(TraceMatching, kinds_without_a_name_are_unknown)
{
    const std::string line = " arg = strange, Unknown, CALL = INTEGER, elcnt = 1 (ByRef)\n";
    for (const char *function : {"kind_10", "kind_12", "kind_-1", "kind_-3", "kind_largest", "kind_smallest"})
        EXPECT_EQ(shown(3, function, {integer(1).by_ref()}), (Shown{-1, heading(function, 1) + line}));
}

TEST(TraceMatching, value_types_without_a_name_are_left_out)
{
    for (const int32_t type : {0, 4, -1, 257}) {
        Argument odd = integer(1);
        odd.type = type;
        EXPECT_EQ(
            shown(3, "IntByValue", {odd}),
            (Shown{8, heading("IntByValue", 1) + " arg = int_value, IntByValue, CALL = , elcnt = 1 (ByValue)\n"}));
    }
}

TEST(TraceMatching, rejected_argument_is_the_last_shown)
{
    EXPECT_EQ(
        shown(3, "references", {integer(1), string("b"), integer(3), integer(4)}),
        (Shown{8, heading("references", 4) + " arg = a, IntByReference, CALL = INTEGER, elcnt = 1 (ByValue)\n"
                                             " arg = b, RealByReference, CALL = STRING, elcnt = 1 (ByValue)\n"}));
    EXPECT_EQ(
        shown(3, "IntArray3", {integers({1, 2})}),
        (Shown{17, heading("IntArray3", 1) + " arg = int_array, IntArray, CALL = INTEGER, elcnt = 2 (ByValue)\n"}));
}

TEST(TraceMatching, argument_without_memory_is_shown)
{
    Session session(Layout::native, traced(3));
    session.prepare("RealByValue", {real("1")});
    session.block.set(1, Arg::elcnt, -9);
    EXPECT_EQ(session.host.call(), KA_NO_MEMORY);
    EXPECT_EQ(session.output(), heading("RealByValue", 1) + " arg = real_value, RealByValue, CALL = REAL, elcnt = -9 "
                                                            "(ByValue)\n");
}

TEST(TraceMatching, arguments_of_a_var_arg_share_its_prototype)
{
    EXPECT_EQ(shown(3, "behind", {integer(1), strings({"a", "b"})}),
              (Shown{0, heading("behind", 2) +
                            " arg = rest, VarArg, CALL = INTEGER, elcnt = 1 (ByValue)\n"
                            " arg = rest, VarArg, CALL = STRING, elcnt = 2 (ByValue)\n" +
                            calling("behind", 2, " rest = 1\n rest = array [2]\n  [ 0] \"a\"\n  [ 1] \"b\"\n")}));
}

TEST(TraceMatching, level_2_shows_none_of_it)
{
    EXPECT_EQ(shown(2, "two", {integer(1), integer(2)}), (Shown{0, calling("two", 2, " a = 1\n b = 2\n")}));
}

// ---- Refusals -----------------------------------------------------------------------------------------------------

TEST(TraceRefusals, missing_name_is_told_at_level_3)
{
    for (const int32_t argc : {0, -1, INT32_MIN}) {
        for (const int level : {2, 3}) {
            Session session(Layout::native, traced(level));
            session.prepare("none");
            session.block.set(Head::argc, argc);
            EXPECT_EQ(session.host.call(), 9);
            EXPECT_EQ(session.output(), level < 3 ? "" : "illegal argument count, function name is required\n");
        }
    }
}

TEST(TraceRefusals, too_many_arguments_are_told_at_level_3)
{
    const std::vector<Argument> arguments(51, integer(1));
    EXPECT_EQ(shown(2, "VarArg", arguments), (Shown{606, ""}));
    EXPECT_EQ(shown(3, "VarArg", arguments), (Shown{606, "argument count exceeds maximum (50)\n"}));
}

TEST(TraceRefusals, name_that_is_no_string_is_told_at_level_3)
{
    for (const int level : {2, 3}) {
        Session session(Layout::native, traced(level));
        session.prepare("none");
        session.block.set(0, Arg::type, 2);
        EXPECT_EQ(session.host.call(), 8);
        EXPECT_EQ(session.output(), level < 3 ? "" : "first argument must be function name\n");
    }
}

TEST(TraceRefusals, unknown_name_is_told_at_level_3)
{
    EXPECT_EQ(shown(2, "nonesuch", {integer(1)}), (Shown{7, ""}));
    EXPECT_EQ(shown(3, "nonesuch", {integer(1)}), (Shown{7, "undefined function name: \"nonesuch\"\n"}));
    EXPECT_EQ(shown(3, "%s%n"), (Shown{7, "undefined function name: \"%s%n\"\n"}));
}

TEST(TraceRefusals, unknown_name_is_shown_in_its_length)
{
    Session session(Layout::native, traced(3));
    session.prepare("nonesuch");
    session.block.store(session.at(0), 6);
    EXPECT_EQ(session.host.call(), 7);
    EXPECT_EQ(session.output(), "undefined function name: \"nonesu\"\n");
    // A negative length shows the bytes there up to a zero byte.
    session.prepare(std::string_view("none\0such", 9));
    session.block.store(session.at(0), -1);
    EXPECT_EQ(session.host.call(), 7);
    EXPECT_EQ(session.output(), "undefined function name: \"none\"\n");
}

// Behind the segment there is no zero byte in its last page, and then no page.
TEST(TraceRefusals, unknown_name_of_any_length_ends_with_the_segment)
{
    constexpr int32_t page_rest = 100;
    Session session(Layout::native, traced(3), 65536 - page_rest);
    session.host.await_idle();
    for (const int32_t length : {9, 10, INT32_MAX, -1, INT32_MIN}) {
        session.prepare("nonesuch");
        const int32_t at = session.block.size() - 4 - 9;
        session.block.set(0, Arg::ptr, session.block.address(at));
        session.block.store(at, length);
        std::memset(session.block.at(at + 4), 'x', 9 + page_rest);
        EXPECT_EQ(session.host.call(), 7);
        EXPECT_EQ(session.output(), "undefined function name: \"xxxxxxxxx\"\n") << length;
    }
    const int32_t last = session.block.size() - 2;
    session.block.set(0, Arg::ptr, session.block.address(last));
    session.block.store(last, 60);
    EXPECT_EQ(session.host.call(), 7);
    EXPECT_EQ(session.output(), "undefined function name: \"\"\n");
}

TEST(TraceRefusals, extra_argument_is_told_at_level_3)
{
    EXPECT_EQ(shown(2, "none", {integer(1)}), (Shown{9, ""}));
    EXPECT_EQ(shown(3, "none", {integer(1)}), (Shown{9, heading("none", 1) + "extra argument detected\n"}));
    EXPECT_EQ(shown(3, "minus", {integer(1)}), (Shown{9, heading("minus", 1) + "extra argument detected\n"}));
    EXPECT_EQ(
        shown(3, "IntByValue", {integer(1), integer(2)}),
        (Shown{9, heading("IntByValue", 2) + " arg = int_value, IntByValue, CALL = INTEGER, elcnt = 1 (ByValue)\n"
                                             "extra argument detected\n"}));
}

TEST(TraceRefusals, wrong_number_of_arguments_is_told_at_level_2)
{
    const std::string lines = "two: wrong number of arguments\nKaFunc->arg_cnt = 2, argi = 1, proto->type = 1\n";
    EXPECT_EQ(shown(1, "two", {integer(1)}), (Shown{9, ""}));
    EXPECT_EQ(shown(2, "two", {integer(1)}), (Shown{9, lines}));
    EXPECT_EQ(shown(3, "two", {integer(1)}),
              (Shown{9, heading("two", 1) + " arg = a, IntByValue, CALL = INTEGER, elcnt = 1 (ByValue)\n" + lines}));
}

TEST(TraceRefusals, wrong_number_of_arguments_shows_the_first_prototype_left_over)
{
    const auto lines = [](const std::string &function, const std::string &rest) {
        return Shown{9, function + ": wrong number of arguments\nKaFunc->arg_cnt = " + rest + "\n"};
    };
    EXPECT_EQ(shown(2, "three"), lines("three", "3, argi = 0, proto->type = 4"));
    EXPECT_EQ(shown(2, "three", {real("1"), real("2")}), lines("three", "3, argi = 2, proto->type = 2"));
    EXPECT_EQ(shown(2, "kind_12"), lines("kind_12", "1, argi = 0, proto->type = 12"));
    EXPECT_EQ(shown(2, "kind_-3"), lines("kind_-3", "1, argi = 0, proto->type = -3"));
    EXPECT_EQ(shown(2, "minus"), lines("minus", "-2, argi = 0, proto->type = 1"));
    EXPECT_EQ(shown(2, "some"), lines("some", "2, argi = 0, proto->type = 1"));
}

TEST(TraceRefusals, silent_refusals_stay_silent)
{
    for (const int level : {1, 2}) {
        EXPECT_EQ(shown(level, "IntArray3", {integer(1)}), (Shown{17, ""}));
        EXPECT_EQ(shown(level, "IntByValue", {string("a")}), (Shown{8, ""}));
        EXPECT_EQ(shown(level, "kind_12", {integer(1)}), (Shown{-1, ""}));
    }
}

} // namespace
} // namespace driver
