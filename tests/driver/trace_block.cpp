// SPDX-License-Identifier: MIT
//
// The dump of the block at level 4, to the byte.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "driver/session.h"

namespace driver {
namespace {

using namespace harness;

class TraceBlock : public testing::TestWithParam<Layout> {
protected:
    TraceBlock() { session_.host.await_idle(); } // so that the segment is attached

    std::string pointer(int32_t offset) const
    {
        char text[20];
        std::snprintf(text, sizeof text, "0x%" PRIx64, session_.host_address() + static_cast<uint64_t>(offset));
        return text;
    }

    std::string start() const
    {
        return "dll base = " + pointer(0) + "\r\nargc = " + std::to_string(session_.block.get(Head::argc)) + "\r\n";
    }

    // The lines of descriptor i, with its type's name and its value line.
    std::string descriptor(int i, const std::string &type, const std::string &value) const
    {
        const auto number = [this, i](Arg field) { return std::to_string(session_.block.get(i, field)) + "\r\n"; };
        return "# " + std::to_string(i) + "\r\ntype   = " + type + "\r\nptr    = " + pointer(session_.at(i)) +
               "\r\nofs    = " + std::to_string(session_.at(i) - session_.at(0)) +
               "\r\nmaxlen = " + number(Arg::maxlen) + "elsz   = " + number(Arg::elsz) +
               "elcnt  = " + number(Arg::elcnt) + value;
    }

    std::string name(const std::string &function) const
    {
        return descriptor(0, "DLL_STRING", "= \"" + function + "\"\r\n");
    }

    // The dump of the call that is in the block; what other levels write is cut off.
    std::string dump()
    {
        session_.host.call();
        const std::string output = session_.output();
        const size_t last = output.rfind("\r\n");
        return last == std::string::npos ? output : output.substr(0, last + 2);
    }

    static constexpr int32_t page_rest = 100; // what the segment leaves of its last page
    Session session_{GetParam(), traced(4), 65536 - page_rest};
};
INSTANTIATE_TEST_SUITE_P(Layouts, TraceBlock, testing::Values(Layout::native, Layout::layout_64),
                         [](const auto &layout) { return name_of(layout.param); });

TEST_P(TraceBlock, name_and_two_integers_are_three_descriptors)
{
    session_.prepare("two", {integer(42), integer(-7)});
    const int32_t origin = session_.at(0);
    session_.host.call();
    const std::string at_1 = pointer(session_.at(1));
    EXPECT_EQ(session_.output(), "dll base = " + pointer(0) +
                                     "\r\nargc = 3\r\n"
                                     "# 0\r\ntype   = DLL_STRING\r\nptr    = " +
                                     pointer(origin) +
                                     "\r\nofs    = 0\r\nmaxlen = 3\r\nelsz   = 2\r\nelcnt  = 1\r\n= \"two\"\r\n"
                                     "# 1\r\ntype   = DLL_INTEGER\r\nptr    = " +
                                     pointer(origin + 16) +
                                     "\r\nofs    = 16\r\nmaxlen = 0\r\nelsz   = 1\r\nelcnt  = 1\r\n= 42\r\n"
                                     "# 2\r\ntype   = DLL_INTEGER\r\nptr    = " +
                                     pointer(origin + 32) +
                                     "\r\nofs    = 32\r\nmaxlen = 0\r\nelsz   = 1\r\nelcnt  = 1\r\n= -7\r\n"
                                     "\nfunction name = \"two\", argc = 2\n"
                                     " arg = a, IntByValue, CALL = INTEGER, elcnt = 1 (ByValue)\n"
                                     " arg = b, IntByValue, CALL = INTEGER, elcnt = 1 (ByValue)\n"
                                     "\ncalling two, argc = 2\n a = 42\n b = -7\nreturn code is 0\n");
}

TEST_P(TraceBlock, real_is_three_words_in_storage_order)
{
    // 12.34 is exponent 1, sign 1, 2 digits 12 34.
    session_.prepare("VarArg", {reals(std::vector<std::string>{"12.34", "5"}).unaligned(1)});
    EXPECT_EQ(dump(), start() + name("VarArg") + descriptor(1, "DLL_REAL", "= 02010001 0000220c 00000000\r\n"));
}

TEST_P(TraceBlock, string_is_shown_in_its_length)
{
    session_.prepare("VarArg", {string("a%s", 10), strings({"", "b"}, 3)});
    EXPECT_EQ(dump(), start() + name("VarArg") + descriptor(1, "DLL_STRING", "= \"a%s\"\r\n") +
                          descriptor(2, "DLL_STRING", "= \"\"\r\n"));
}

// The length is also the width of the field.
TEST_P(TraceBlock, string_with_a_zero_byte_is_padded_on_the_left)
{
    session_.prepare("VarArg", {string(std::string_view("a\0c", 3))});
    EXPECT_EQ(dump(), start() + name("VarArg") + descriptor(1, "DLL_STRING", "= \"  a\"\r\n"));
}

TEST_P(TraceBlock, string_of_negative_length_is_padded_on_the_right)
{
    session_.prepare("zString", {string(std::string_view("ab\0", 3))});
    session_.block.store(session_.at(1), -4);
    EXPECT_EQ(dump(), start() + name("zString") + descriptor(1, "DLL_STRING", "= \"ab  \"\r\n"));
    EXPECT_EQ(session_.block.get(Head::retcode), KA_NO_MEMORY);
}

TEST_P(TraceBlock, string_of_a_damaged_length_ends_with_the_segment)
{
    session_.prepare("VarArg", {string(std::string_view("ab\0", 3))});
    const size_t room = static_cast<size_t>(session_.block.size() - session_.at(1) - 4);
    const std::string blanks(room - 2, ' ');
    for (const auto &[length, field] : {std::pair(INT32_MAX, blanks + "ab"), std::pair(INT32_MIN, "ab" + blanks)}) {
        session_.block.store(session_.at(1), length);
        EXPECT_EQ(dump(), start() + name("VarArg") + descriptor(1, "DLL_STRING", "= \"" + field + "\"\r\n"));
    }
}

// Without a zero byte as well; the last page after the segment has none either.
TEST_P(TraceBlock, string_of_negative_length_ends_with_the_segment)
{
    session_.prepare("zString", {string("ab")});
    session_.block.store(session_.at(1), -4);
    const int32_t behind = session_.at(1) + 4 + 2;
    const size_t room = static_cast<size_t>(session_.block.size() - behind);
    std::memset(session_.block.at(behind), 'x', room + page_rest);
    const std::string expected = "= \"ab" + std::string(room, 'x') + "\"\r\n";
    EXPECT_EQ(dump(), start() + name("zString") + descriptor(1, "DLL_STRING", expected));
}

TEST_P(TraceBlock, string_whose_characters_begin_behind_the_segment_has_none)
{
    session_.prepare("zString", {string("ab")});
    const int32_t last_bytes = session_.block.size() - 2;
    std::memset(session_.block.at(last_bytes), 'x', page_rest + 2);
    session_.block.store(last_bytes, 60);
    session_.block.set(1, Arg::ptr, session_.block.address(last_bytes));
    EXPECT_EQ(dump(), start() + name("zString") + descriptor(1, "DLL_STRING", "= \"\"\r\n"));
}

TEST_P(TraceBlock, other_value_types_have_no_value_line)
{
    std::vector<Argument> arguments(4, integer(5));
    arguments[0].type = 0;
    arguments[1].type = 4;
    arguments[2].type = -1;
    arguments[3].type = 259;
    session_.prepare("VarArg", arguments);
    std::string expected = start() + name("VarArg");
    for (int n = 1; n <= 4; n++)
        expected += descriptor(n, "DLL_???", "");
    EXPECT_EQ(dump(), expected);
}

TEST_P(TraceBlock, only_the_first_element_is_shown)
{
    session_.prepare("VarArg", {integers({1, 2, 3}).spaced(4), reals({"1", "2", "3"}), strings({"a", "b"})});
    EXPECT_EQ(dump(), start() + name("VarArg") + descriptor(1, "DLL_INTEGER", "= 1\r\n") +
                          descriptor(2, "DLL_REAL", "= 01010001 00000001 00000000\r\n") +
                          descriptor(3, "DLL_STRING", "= \"a\"\r\n"));
}

TEST_P(TraceBlock, offsets_count_from_the_name)
{
    session_.prepare("VarArg", {integer(1), integer(2)});
    // The name moves to after the arguments.
    const int32_t behind = data_offset + 8000;
    std::memcpy(session_.block.at(behind), session_.block.at(session_.at(0)), 16);
    session_.block.set(0, Arg::ptr, session_.block.address(behind));
    ASSERT_LT(session_.at(1), behind);
    EXPECT_EQ(dump(), start() + name("VarArg") + descriptor(1, "DLL_INTEGER", "= 1\r\n") +
                          descriptor(2, "DLL_INTEGER", "= 2\r\n"));
}

TEST_P(TraceBlock, fields_are_shown_as_they_are)
{
    session_.prepare("VarArg", {integer(1)});
    for (const Arg field : {Arg::maxlen, Arg::elsz, Arg::elcnt})
        session_.block.set(1, field, INT32_MIN + static_cast<int>(field));
    EXPECT_EQ(dump(), start() + name("VarArg") + descriptor(1, "DLL_INTEGER", "= 1\r\n"));
}

TEST_P(TraceBlock, comes_before_every_check)
{
    session_.prepare("VarArg", std::vector<Argument>(51, integer(3)));
    std::string expected = start() + name("VarArg");
    for (int n = 1; n <= 51; n++)
        expected += descriptor(n, "DLL_INTEGER", "= 3\r\n");
    session_.host.call();
    EXPECT_EQ(session_.output(), expected + "argument count exceeds maximum (50)\n");

    session_.prepare("12");
    session_.block.set(0, Arg::type, 1);
    expected = start() + descriptor(0, "DLL_INTEGER", "= 2\r\n");
    session_.host.call();
    EXPECT_EQ(session_.output(), expected + "first argument must be function name\n");
}

TEST_P(TraceBlock, without_descriptors_shows_the_count_alone)
{
    for (const int32_t argc : {0, -1, INT32_MIN}) {
        session_.prepare("two", {integer(1), integer(2)});
        session_.block.set(Head::argc, argc);
        session_.host.call();
        EXPECT_EQ(session_.output(), start() + "illegal argument count, function name is required\n");
    }
}

TEST_P(TraceBlock, is_written_at_every_level_above_3)
{
    const std::pair<int32_t, bool> levels[] = {{3, false}, {5, true}, {INT32_MAX, true}, {-5, false}, {4, true}};
    for (const auto &[level, dumped] : levels) {
        session_.call("none", {}, {step(LEVEL, level)});
        session_.output();
        session_.call("none");
        EXPECT_EQ(session_.output().starts_with(start() + name("none")), dumped) << level;
    }
}

// ---- When it is written -------------------------------------------------------------------------------------------

// Where standard error has a buffer, a dump arrives at once, with what was written before it; the rest of the trace
// waits for the next dump or the end.
TEST_P(TraceBlock, alone_is_flushed)
{
    session_.call("none", {}, {step(BUFFER)});
    session_.output();
    const std::vector<Argument> references = {integer(1).by_ref(), real("2").by_ref()};
    session_.call("VarArg", references);
    const std::string first = session_.output();
    EXPECT_TRUE(first.ends_with("\r\n")) << first;
    session_.call("two", {integer(1)});
    const std::string second = session_.output();
    EXPECT_NE(second.find("calling VarArg, argc = 2\n"), std::string::npos) << second;
    EXPECT_TRUE(second.ends_with("\r\n")) << second;
    session_.host.terminate();
    EXPECT_NE(session_.output().find("two: wrong number of arguments\n"), std::string::npos);
}

class BelowTheDump : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Levels, BelowTheDump, testing::Values(1, 2, 3));

TEST_P(BelowTheDump, nothing_is_flushed)
{
    Session session(Layout::native, traced(GetParam()));
    session.call("none", {}, {step(BUFFER)});
    session.output();
    session.call("RealArray", {reals({"1", "2"}).by_ref()});
    session.call("two", {integer(1)});
    session.call("no such function");
    session.call("none", {integer(1)});
    EXPECT_EQ(session.output(), "");
    session.host.terminate();
    EXPECT_NE(session.output().find("calling RealArray"), std::string::npos);
}

} // namespace
} // namespace driver
