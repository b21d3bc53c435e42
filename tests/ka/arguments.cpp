// SPDX-License-Identifier: MIT
//
// How arguments are written that stand for themselves, and how results are shown.
#include "ka/command.h"

static std::string out_of(std::vector<std::string> words)
{
    const Outcome outcome = call(std::move(words));
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
    return outcome.out;
}

TEST(KaCall, integers_and_a_reference)
{
    EXPECT_EQ(out_of({"add", "2", "40", "&0"}), "sum = 42\nreturn code 0\n");
    EXPECT_EQ(out_of({"add", "-2147483648", "+5", "&0"}), "sum = -2147483643\nreturn code 0\n");
}

TEST(KaCall, serves_both_layouts_with_options_anywhere)
{
    EXPECT_EQ(out_of({"add", "2", "-5", "&0", "--layout", "64"}), "sum = -3\nreturn code 0\n");
    EXPECT_EQ(out_of({"--layout=native", "add", "2", "-5", "&0"}), "sum = -3\nreturn code 0\n");
    EXPECT_EQ(out_of({"--layout=64", "--", "add", "2", "-5", "&0"}), "sum = -3\nreturn code 0\n");
}

TEST(KaCall, reals_are_exact)
{
    EXPECT_EQ(out_of({"scale_one", "&4.2", "1"}), "x = 4.2\nreturn code 0\n");
    EXPECT_EQ(out_of({"scale_one", "&-.5", "1e3"}), "x = -500.0\nreturn code 0\n");
    EXPECT_EQ(out_of({"scale", "&1e100", "1e20"}), "values = 1E+120\nreturn code 0\n");
}

// The function is refused at its second argument, so what comes back is what was sent: 16 decimals, as no double
// holds them apart.
TEST(KaCall, reals_do_not_pass_through_double)
{
    const Outcome outcome = call({"--raw", "scale", "&[0.1234567890123457,1234567890123456.,1e-128]", "'x'"});
    EXPECT_EQ(outcome.out, "values = [0.1234567890123457, 1234567890123456.0, 1E-128]\nreturn code 8\n");
}

TEST(KaCall, every_decimal_of_a_real_counts)
{
    const Outcome outcome = call({"--raw", "scale", "&[12345678901234567890.5,-1234567890123456789]", "'x'"});
    EXPECT_EQ(outcome.out, "values = [1.234567890123457E+19, -1.23456789012346E+18]\nreturn code 8\n");
    EXPECT_EQ(out_of({"scale_one", "&1234567890123456789", "1"}), "x = 1.2345678901235E+18\nreturn code 0\n");
}

TEST(KaCall, arrays)
{
    EXPECT_EQ(out_of({"double", "&[1,-2,3]"}), "values = [2, -4, 6]\nreturn code 0\n");
    EXPECT_EQ(out_of({"double", "&[7]"}), "values = [14]\nreturn code 0\n");
    EXPECT_EQ(out_of({"scale", "&[ 1, 2.5 ,-4e2 ]", "2"}), "values = [2.0, 5.0, -800.0]\nreturn code 0\n");
}

TEST(KaCall, integers_among_reals_are_reals)
{
    EXPECT_EQ(out_of({"scale", "&[3000000000,1.5]", "1"}), "values = [3000000000.0, 1.5]\nreturn code 0\n");
}

TEST(KaCall, strings_with_room)
{
    EXPECT_EQ(out_of({"greet", "&str:20"}), "text = 'good day'\nreturn code 0\n");
    EXPECT_EQ(out_of({"greet", "&'x':8"}), "text = 'good day'\nreturn code 0\n");
    EXPECT_EQ(out_of({"shout", "&['a','bc','']:3"}), "texts = ['a!', 'bc!', '!']\nreturn code 0\n");
}

TEST(KaCall, string_without_more_room_cannot_grow)
{
    const Outcome outcome = call({"--raw", "greet", "&'short'"});
    EXPECT_EQ(outcome.out, "text = 'short'\nreturn code 18\n");
    EXPECT_EQ(outcome.status, 1);
}

TEST(KaCall, any_character_goes_in_and_comes_out_as_it_was_written)
{
    const std::string text = R"('it\'s a \\ with \n\t\r\x00\x1b\x7f and ü')";
    EXPECT_EQ(out_of({"shout", "&[" + text + ",'']:60"}),
              "texts = [" + text.substr(0, text.size() - 1) + "!', '!']\nreturn code 0\n");
    EXPECT_EQ(out_of({"shout", R"(&['\x41\x4a\x4A','']:4)"}), "texts = ['AJJ!', '!']\nreturn code 0\n");
}

TEST(KaCall, argument_by_value_shows_nothing)
{
    EXPECT_EQ(out_of({"--raw", "double", "[1,2]"}), "return code 0\n");
}

TEST(KaCall, reference_that_the_module_does_not_give_back_shows_nothing)
{
    EXPECT_EQ(out_of({"scale_one", "&1.5", "&2"}), "x = 3.0\nreturn code 0\n");
}

TEST(KaCall, callbacks_are_answered_and_told_on_standard_error)
{
    const Outcome outcome = call({"--callback", "-7", "ask_many", "2", "0"});
    EXPECT_EQ(outcome.out, "sum = -14\nreturn code 0\n");
    EXPECT_EQ(outcome.err, "ka: call-back 0, answered -7\nka: call-back 1, answered -7\n");
    EXPECT_EQ(call({"ask", "5"}).out, "return code 0\n");
}

TEST(KaCall, module_sees_the_segment_that_is_asked_for)
{
    EXPECT_EQ(call({"--scratch", "100", "scratch_room", "100"}).out, "return code 1\n");
    EXPECT_EQ(call({"--scratch", "100", "scratch_room", "101"}).out, "return code 0\n");
    EXPECT_EQ(call({"--segment", "3000000", "measure", "str:2000000"}).status, 0);
}

TEST(KaCall, malformed_arguments_are_named)
{
    const std::pair<std::string, std::string> cases[] = {
        {"abc", "abc is neither a number nor a quoted 'text'"},
        {"", "a value is missing"},
        {"&", "a value is missing"},
        {"&&1", "&1 is neither a number nor a quoted 'text'"},
        {"-", "- is not a number, or out of a REAL's range"},
        {"1.2.3", "1.2.3 is not a number, or out of a REAL's range"},
        {"1e200", "1e200 is not a number, or out of a REAL's range"},
        {"0x10", "0x10 is neither a number nor a quoted 'text'"},
        {"1,2", "\",2\" follows the value"},
        {"2147483648",
         "2147483648 does not fit an INTEGER (-2147483648 to 2147483647); a REAL is written 2147483648.0"},
        {"-2147483649",
         "-2147483649 does not fit an INTEGER (-2147483648 to 2147483647); a REAL is written -2147483649.0"},
        {"[1,2,99999999999]",
         "element 3: 99999999999 does not fit an INTEGER (-2147483648 to 2147483647); a REAL is written "
         "99999999999.0"},
        {"[1,x]", "element 2: x is neither a number nor a quoted 'text'"},
        {"['a','abc']:2", "room for 2 characters, but element 2 has 3"},
        {"[]", "an empty array"},
        {"[1,]", "a value is missing"},
        {"[1", "the closing bracket is missing"},
        {"[1 2]", "the closing bracket is missing"},
        {"[1,'a']", "an array holds numbers or strings, not both"},
        {"[1.5,'a']", "an array holds numbers or strings, not both"},
        {"[[1]]", "an array within an array"},
        {"'open", "the closing quote is missing"},
        {"'a\\", "a backslash at the end"},
        {"'\\q'", "\\q is not an escape; a backslash is written \\\\"},
        {"'\\x4'", "\\x needs two hexadecimal digits"},
        {"'a'b", "\"b\" follows the value"},
        {"'abc':2", "room for 2 characters, but a string of 3"},
        {"'abc':", "the room after the colon must be a number of characters"},
        {"'abc':-1", "the room after the colon must be a number of characters"},
        {"'abc':99999999999", "the room after the colon must be a number of characters"},
        {"'abc':5x", "\"x\" follows the value"},
        {"5:3", "only strings have room"},
        {"str", "str is neither a number nor a quoted 'text'"},
        {"str:", "the room after the colon must be a number of characters"},
    };
    for (const auto &[text, reason] : cases) {
        const Outcome outcome = call({"--raw", "add", "1", text});
        EXPECT_EQ(outcome.status, 2) << text;
        EXPECT_EQ(outcome.out, "") << text;
        EXPECT_EQ(outcome.err, "ka: argument 2 (" + text + "): " + reason + "\n");
    }
}
