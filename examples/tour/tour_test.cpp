// SPDX-License-Identifier: MIT
//
// The unit test of tour.cpp, with GoogleTest:
// c++ tour.cpp tour_test.cpp -lkahost_test -lgtest -lgtest_main -o tour_test
#include <ka/module_test.hpp>

#include <gtest/gtest.h>

using ka::test::call;

TEST(Tour, adds_up)
{
    std::int32_t sum = 0;
    EXPECT_EQ(call("total", std::vector<std::int32_t>{1, 2, 3}, ka::ref(sum)), 0);
    EXPECT_EQ(sum, 6);
    EXPECT_EQ(call("total", std::vector<std::int32_t>{}, ka::ref(sum)), KA_TOO_FEW_ELEMENTS);
}

TEST(Tour, scales)
{
    std::vector<double> values{1, -2.5};
    double largest = 0;
    EXPECT_EQ(call("scale", 2, ka::ref(values), ka::ref(largest)), 0);
    EXPECT_EQ(values, (std::vector<double>{2, -5}));
    EXPECT_EQ(largest, 2);
}

TEST(Tour, greets_where_there_is_room)
{
    std::string greeting;
    EXPECT_EQ(call("greet", "world", ka::ref(greeting, 12)), 0);
    EXPECT_EQ(greeting, "hello, world");
    EXPECT_EQ(call("greet", "everybody", ka::ref(greeting, 12)), 18);
    EXPECT_EQ(greeting, "hello, world");
}

TEST(Tour, joins_words_and_names_the_kinds_of_what_follows)
{
    std::string line;
    const std::vector<std::string> words{"one", "two"};
    EXPECT_EQ(call("join", words, ka::ref(line, 40), 1, std::vector<double>{1, 2}, "text"), 0);
    EXPECT_EQ(line, "onetwo 2 6 8");
}

TEST(Tour, keeps_the_answers_in_the_scratch_area)
{
    ka::test::Caller caller; // one with a scratch area of its own
    caller.on_callback([](std::int32_t question) { return 2 * question; });
    std::int32_t answer = 0, sum = 0;
    EXPECT_EQ(caller.call("ask", 3, ka::ref(answer), ka::ref(sum)), 0);
    EXPECT_EQ(caller.call("ask", 4, ka::ref(answer), ka::ref(sum)), 0);
    EXPECT_EQ(answer, 8);
    EXPECT_EQ(sum, 14);
}

TEST(TourDeathTest, crashes)
{
    EXPECT_DEATH(call("crash"), "");
}
