// SPDX-License-Identifier: MIT
//
// Arguments whose converted form no memory can hold.
#include <gtest/gtest.h>

#include <algorithm>

#include "driver/session.h"

namespace driver {
namespace {

using namespace harness;

// The sanitizer's allocator must answer like the C library's, not end the host.
const Start null_without_memory = {.module = "counted", .environment = {"ASAN_OPTIONS=allocator_may_return_null=1"}};

struct Hostile {
    const char *function;
    Argument argument;
};

std::ostream &operator<<(std::ostream &out, const Hostile &hostile)
{
    return out << hostile.function << " of type " << hostile.argument.type;
}

class NoMemory : public testing::TestWithParam<Hostile> {};

TEST_P(NoMemory, impossible_number_of_elements_is_2)
{
    Session session(Layout::native, null_without_memory);
    // Each of the larger counts is a small number of bytes when it is computed in 32 bits only.
    for (const int32_t elcnt :
         {-1, -2, INT32_MIN, INT32_MAX, 0x20000000, 0x20000001, 0x40000000, 0x15555556, 0x2aaaaaab, 0x55555556}) {
        session.prepare(GetParam().function, {GetParam().argument.by_ref()}, {step(SEE)});
        session.block.set(1, Arg::elcnt, elcnt);
        session.clear_heap();
        Block expected(Layout::native);
        std::copy_n(session.block.at(0), session.block.size(), expected.at(0));
        EXPECT_EQ(session.host.call(), KA_NO_MEMORY) << elcnt;
        expected.set(Head::retcode, KA_NO_MEMORY);
        EXPECT_TRUE(session.block.bytes() == expected.bytes()) << elcnt;
        EXPECT_EQ(session.heap().requests, 0) << elcnt;
    }
    EXPECT_EQ(session.call(GetParam().function, {GetParam().argument}, {step(RETURN, 44)}), 44);
}

const Hostile hostile[] = {
    {"VarArg", real("1")},       {"VarArg", string("a")},    {"IntByValue", real("1")},
    {"RealByValue", integer(1)}, {"RealByValue", real("1")}, {"RealByReference", real("1")},
    {"String", string("a")},
};
INSTANTIATE_TEST_SUITE_P(Memory, NoMemory, testing::ValuesIn(hostile), [](const auto &each) {
    return std::string(each.param.function) + "_" + std::to_string(each.param.argument.type);
});

TEST(Memory, impossible_number_of_elements_of_an_array_is_2)
{
    Session session(Layout::native, null_without_memory);
    for (const auto &[function, argument] : {std::pair{"RealArray", real("1")}, {"StringArray", string("a")}}) {
        session.prepare(function, {argument});
        session.block.set(1, Arg::elcnt, 0x20000000);
        EXPECT_EQ(session.host.call(), KA_NO_MEMORY) << function;
    }
}

TEST(Memory, impossible_length_of_a_zstring_is_2)
{
    Session session(Layout::layout_64, null_without_memory);
    for (const int32_t length : {-1, -2, INT32_MIN, INT32_MAX}) {
        session.prepare("zString", {string("abc")}, {step(SEE)});
        session.block.store(session.at(1), length);
        EXPECT_EQ(session.host.call(), KA_NO_MEMORY) << length;
    }
    EXPECT_EQ(session.call("zString", {string("abc")}, {step(RETURN, 44)}), 44);
}

TEST(Memory, count_that_no_buffer_needs_is_not_looked_at)
{
    Session session;
    for (const int32_t elcnt : {-1, INT32_MIN, INT32_MAX}) {
        for (const auto &[function, argument] : {std::pair{"IntByValue", integer(1)},
                                                 {"IntByReference", integer(1)},
                                                 {"VarArg", integer(1)},
                                                 {"zString", string("a")}}) {
            session.prepare(function, {argument.by_ref()}, {step(RETURN, 44)});
            session.block.set(1, Arg::elcnt, elcnt);
            EXPECT_EQ(session.host.call(), 44) << function << " " << elcnt;
        }
    }
}

TEST(Memory, buffers_before_the_impossible_one_are_freed_by_the_next_call)
{
    Session session(Layout::native, null_without_memory);
    session.prepare("three", {real("1"), real("2"), integer(3)});
    session.block.set(2, Arg::elcnt, INT32_MAX);
    session.clear_heap();
    EXPECT_EQ(session.host.call(), KA_NO_MEMORY);
    EXPECT_EQ(session.heap().requests, 1);
    EXPECT_EQ(session.heap().frees, 0);
    EXPECT_EQ(session.call("none"), 0);
    EXPECT_EQ(session.heap().frees, 1);
}

} // namespace
} // namespace driver
