// SPDX-License-Identifier: MIT
//
// The arguments of a function for particular values. Every test writes its expectation out; the systematic part is in
// cells.cpp.
#include <gtest/gtest.h>

#include "driver/session.h"

namespace driver {
namespace {

using namespace harness;

const std::vector<Step> look = {step(SEE)};

// The one argument as the function gets it.
std::string received(Session &session, const std::string &function, const Argument &argument)
{
    EXPECT_EQ(session.call(function, {argument}, look), 0);
    const std::string heading = function + " #" + std::to_string(index_of(function)) + "\n1: ";
    const std::string output = session.output();
    EXPECT_TRUE(output.starts_with(heading)) << output;
    return output.starts_with(heading) ? output.substr(heading.size()) : "";
}

std::string received(const std::string &function, const Argument &argument)
{
    Session session;
    return received(session, function, argument);
}

TEST(Conversions, integer_becomes_the_same_double)
{
    EXPECT_EQ(received("RealByValue", integer(7)), "doubles 7\n");
    EXPECT_EQ(received("RealByValue", integers({INT32_MIN, -1, 0, INT32_MAX})),
              "doubles -2147483648 -1 0 2147483647\n");
}

TEST(Conversions, real_by_value_as_integer_is_truncated)
{
    EXPECT_EQ(received("IntByValue", reals({"7", "7.99", "-2.7", "0.999", "-0.5", "2147483647.99"})),
              "ints 7 7 -2 0 0 2147483647\n");
}

TEST(Conversions, real_out_of_the_integer_range_is_saturated)
{
    EXPECT_EQ(received("IntByValue", reals({"3e9", "-3e9", "2147483648", "-2147483649", "-2147483648", "1e100"})),
              "ints 2147483647 -2147483648 2147483647 -2147483648 -2147483648 2147483647\n");
}

TEST(Conversions, real_becomes_the_double_nearest_to_its_14_decimals)
{
    EXPECT_EQ(received("RealByReference", reals({"0.1", "123.45", "-1e-20", "0"})),
              "doubles 0.10000000000000001 123.45 -9.9999999999999995e-21 0\n");
    EXPECT_EQ(received("RealArray", reals({"0.1234567890123456", "12345678901234.56", "99999999999999.9"})),
              "doubles 0.12345678901234999 12345678901235 100000000000000\n");
}

TEST(Conversions, largest_real_is_a_finite_double)
{
    EXPECT_EQ(received("RealByValue", reals({c_dec_huge})), "doubles 9.9999999999999e+125\n");
}

TEST(Conversions, var_arg_takes_each_argument_as_its_value_type_says)
{
    Session session;
    const std::vector<Argument> arguments = {integer(5), real("1.5"), string("ab", 9), integers({1, 2})};
    EXPECT_EQ(session.call("VarArg", arguments, look), 0);
    const auto at = [&session](int n) { return std::to_string(session.at(n)); };
    EXPECT_EQ(session.output(), "VarArg #0\n1: block+" + at(1) + " 5\n2: doubles 1.5\n3: records 2/9+" +
                                    std::to_string(session.at(3) + 4) + "\"ab\"\n4: block+" + at(4) + " 1 2\n");
}

TEST(Conversions, integers_by_value_are_the_words_of_the_block)
{
    Session session;
    EXPECT_EQ(session.call("IntByValue", {integers({10, -20})}, {step(SEE), step(EDIT)}), 0);
    EXPECT_EQ(session.output(), "IntByValue #1\n1: block+" + std::to_string(session.at(1)) + " 10 -20\n");
    EXPECT_EQ(integers_of(session.block, 1), (std::vector{21, -39}));
}

TEST(Conversions, integers_in_the_block_keep_their_distance)
{
    Session session;
    EXPECT_EQ(session.call("IntArray", {integers({1, 2, 3}).spaced(5).unaligned(3)}, look), 0);
    EXPECT_EQ(session.output(), "IntArray #3\n1: block+" + std::to_string(session.at(1)) + " 1 2 3\n");
    EXPECT_EQ(session.at(1) % 4, 3);
}

TEST(Conversions, doubles_stand_side_by_side_whatever_the_distance_in_the_block)
{
    EXPECT_EQ(received("RealByReference", reals({"1", "2", "3"}).spaced(11).unaligned(1)), "doubles 1 2 3\n");
    EXPECT_EQ(received("RealByValue", integers({1, 2, 3}).spaced(11).unaligned(1)), "doubles 1 2 3\n");
    EXPECT_EQ(received("IntByValue", reals({"1", "2", "3"}).spaced(11).unaligned(1)), "ints 1 2 3\n");
}

TEST(Conversions, elements_at_distance_0_are_all_the_first)
{
    EXPECT_EQ(received("RealByReference", reals({"3", "2", "1"}).spaced(0)), "doubles 1 1 1\n");
}

// An integer that a function takes for the double it expected can be written as one.
TEST(Conversions, real_to_int_buffer_has_room_for_doubles)
{
    Session session;
    const std::vector<Argument> arguments = {reals(std::vector<std::string>(100, "1"))};
    EXPECT_EQ(session.call("IntByValue", arguments, {step(ROOM)}), 0);
    const std::string output = session.output();
    ASSERT_TRUE(output.starts_with("room ")) << output;
    EXPECT_GE(std::stoi(output.substr(5)), 800);
}

TEST(Conversions, zstring_ends_with_a_zero_byte)
{
    EXPECT_EQ(received("zString", string("abc", 20)), "text \"abc\\00\"\n");
    EXPECT_EQ(received("zString", string("")), "text \"\\00\"\n");
}

TEST(Conversions, zstring_copies_embedded_zero_bytes)
{
    EXPECT_EQ(received("zString", string(std::string_view("a\0b\0", 4))), "text \"a\\00b\\00\\00\"\n");
}

TEST(Conversions, zstring_takes_the_first_element_only)
{
    EXPECT_EQ(received("zString", strings({"first", "second", "third"})), "text \"first\\00\"\n");
}

TEST(Conversions, zstring_takes_a_value_longer_than_its_room)
{
    EXPECT_EQ(received("zString", string("longer than that", 3)), "text \"longer than that\\00\"\n");
}

TEST(Conversions, zstring_is_a_private_copy)
{
    Session session;
    session.prepare("zString", {string("abc").by_ref()}, {step(EDIT), step(SEE)});
    const std::string before = session.block.bytes().substr(data_offset);
    EXPECT_EQ(session.host.call(), 0);
    EXPECT_EQ(session.output(), "zString #7\n1: text \"XXX\\00\"\n");
    EXPECT_TRUE(session.block.bytes().substr(data_offset) == before);
}

TEST(Conversions, zstring_of_no_elements_reads_the_value_all_the_same)
{
    Session session;
    session.prepare("zString", {string("abc")}, look);
    session.block.set(1, Arg::elcnt, 0);
    EXPECT_EQ(session.host.call(), 0);
    EXPECT_EQ(session.output(), "zString #7\n1: text \"abc\\00\"\n");
}

TEST(Conversions, string_record_shows_length_room_and_characters_in_the_block)
{
    Session session;
    const std::string seen = received(session, "String", string("abc", 10));
    EXPECT_EQ(seen, "records 3/10+" + std::to_string(session.at(1) + 4) + "\"abc\"\n");
}

TEST(Conversions, string_records_share_one_room)
{
    Session session;
    const std::string seen = received(session, "StringArray", strings({"abc", "", "d"}, 10).spaced(6).unaligned(1));
    const auto at = [&session](int k) { return std::to_string(session.at(1) + 24 * k + 4); };
    EXPECT_EQ(seen, "records 3/10+" + at(0) + "\"abc\" 0/10+" + at(1) + "\"\" 1/10+" + at(2) + "\"d\"\n");
}

TEST(Conversions, string_room_is_handed_on_unchecked)
{
    Session session;
    session.prepare("String", {string("abc")}, look);
    session.block.set(1, Arg::maxlen, -5);
    EXPECT_EQ(session.host.call(), 0);
    EXPECT_EQ(session.output(), "String #8\n1: records 3/-5+" + std::to_string(session.at(1) + 4) + "\"abc\"\n");
}

TEST(Conversions, arguments_may_share_one_value)
{
    Session session;
    session.prepare("two", {integer(3), integer(4)}, {step(SEE), step(EDIT)});
    session.block.set(2, Arg::ptr, session.block.get(1, Arg::ptr));
    EXPECT_EQ(session.host.call(), 0);
    const std::string at = std::to_string(session.at(1));
    EXPECT_EQ(session.output(), "two #15\n1: block+" + at + " 3\n2: block+" + at + " 3\n");
    EXPECT_EQ(integers_of(session.block, 1), std::vector{15}); // 2 (2 * 3 + 1) + 1
}

TEST(Conversions, large_arrays_are_converted_whole)
{
    Session session(Layout::layout_64, {.module = "driver"}, 1 << 20);
    std::string expected = "RealArray #6\n1: doubles";
    std::vector<std::string> values;
    for (int i = 0; i < 20000; i++) {
        values.push_back(std::to_string(i));
        expected += " " + values.back();
    }
    EXPECT_EQ(session.call("RealArray", {reals(values)}, look), 0);
    EXPECT_TRUE(session.output() == expected + "\n");
}

// ---- A null REAL has no value to convert -------------------------------------------------------------------------

class NullReal : public testing::TestWithParam<const char *> {};

TEST_P(NullReal, ends_the_host)
{
    Session session;
    t_DECIMAL null = c_dec_one;
    null.dec_pos = DEC_NULL;
    session.prepare(GetParam(), {reals({c_dec_one, null})}, look);
    session.host.ring();
    EXPECT_EQ(session.host.await_end(), killed(SIGABRT));
    const std::string output = session.output();
    const std::string expected = "fatal math error cc #-2\nfile = math/src/math, line = ";
    ASSERT_TRUE(output.starts_with(expected)) << output;
    const std::string line = output.substr(expected.size());
    EXPECT_GT(std::stoi(line), 0);
    EXPECT_EQ(line, std::to_string(std::stoi(line)) + "\n");
    EXPECT_FALSE(session.host.has_signalled());
    EXPECT_EQ(session.block.get(Head::retcode), 0);
}

INSTANTIATE_TEST_SUITE_P(Conversions, NullReal,
                         testing::Values("IntByValue", "RealByValue", "RealByReference", "RealArray", "VarArg"),
                         [](const auto &function) { return std::string(function.param); });

} // namespace
} // namespace driver
