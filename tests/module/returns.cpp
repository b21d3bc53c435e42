// SPDX-License-Identifier: MIT
//
// Each type that functions return, and each form of function.
#include <gtest/gtest.h>

#include "ka/caller.hpp"
#include "ka/kastring.h"
#include "module/ordinary.h"

IN_BOTH_LAYOUTS(Returns);

namespace {
constexpr std::int32_t no_room = 18;
}

TEST_P(Returns, a_code_is_the_code)
{
    EXPECT_EQ(host.call("nothing"), 42);
    EXPECT_EQ(host.call("no_result"), 0);
    EXPECT_EQ(host.call("old_status", 5), 5);
}

TEST_P(Returns, numbers_are_results)
{
    std::int32_t integer = 0;
    EXPECT_EQ(host.call("integer_out", ka::ref(integer)), 0);
    EXPECT_EQ(integer, -7);
    double real = 0;
    EXPECT_EQ(host.call("real_out", ka::ref(real)), 0);
    EXPECT_EQ(real, 0.1);
    ka::Decimal exact;
    EXPECT_EQ(host.call("exact_out", ka::ref(exact)), 0);
    EXPECT_EQ(exact.text, "1234567.8901234");
}

TEST_P(Returns, texts_are_results)
{
    std::string text;
    EXPECT_EQ(host.call("string_out", ka::ref(text, 3)), 0);
    EXPECT_EQ(text, std::string("a\0b", 3));
    EXPECT_EQ(host.call("view_out", "what", ka::ref(text, 3)), 0);
    EXPECT_EQ(text, "hat");
    EXPECT_EQ(host.call("text_out", 0, ka::ref(text, 4)), 0);
    EXPECT_EQ(text, "text");
    EXPECT_EQ(host.call("text_out", 1, ka::ref(text, 4)), 0);
    EXPECT_EQ(text, "");
    EXPECT_EQ(host.call("constant_out", ka::ref(text, 8)), 0);
    EXPECT_EQ(text, "constant");
}

TEST_P(Returns, text_that_does_not_fit_changes_nothing)
{
    std::string text = "x";
    EXPECT_EQ(host.call("string_out", ka::ref(text, 2)), KASTR_NO_ROOM);
    EXPECT_EQ(text, "x");
}

TEST_P(Returns, a_result_lies_behind_what_is_changed)
{
    std::int32_t number = 1, sum = 0;
    std::string text;
    EXPECT_EQ(host.call("result_behind", ka::ref(number), ka::ref(text, 9), 7.9, ka::ref(sum)), 0);
    EXPECT_EQ(number, 2);
    EXPECT_EQ(text, "changed");
    EXPECT_EQ(sum, 7);
}

TEST_P(Returns, every_form_of_function_is_called)
{
    EXPECT_EQ(length_in("of_integer", 7), 7);
    EXPECT_EQ(result_of("of_real", 7), 3.5);
    EXPECT_EQ(length_in("TWICE it!", 21), 42);
    EXPECT_EQ(length_in("never_throws", 1), 2);
    EXPECT_EQ(length_in("number", 1), 101);
    EXPECT_EQ(result_of("rate", 50), 0.5);
    std::int32_t number = 0;
    EXPECT_EQ(host.call("tables", ka::ref(number)), 0);
    EXPECT_EQ(number, 3);
}

// Functions without a word have no record.
TEST_P(Returns, documentation_is_in_the_tables)
{
    const auto doc = [&](std::int32_t function, std::int32_t argument) {
        std::string text;
        EXPECT_EQ(host.call("doc_of", function, argument, ka::ref(text, 80)), 0);
        return text;
    };
    EXPECT_EQ(doc(0, 0), "1: what the tables say");
    EXPECT_EQ(doc(0, 1), "from 0");
    EXPECT_EQ(doc(0, 2), "nothing");
    EXPECT_EQ(doc(0, 3), "the words");
    EXPECT_EQ(doc(1, 0), "1: nothing");
    EXPECT_EQ(doc(1, 1), "an INTEGER");
    EXPECT_EQ(doc(2, 0), "none");
}
