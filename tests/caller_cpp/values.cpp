// SPDX-License-Identifier: MIT
//
// Arguments and results in C++ types.
#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <span>

#include "caller/hosts.h"
#include "ka/caller.hpp"
#include "ka/dll_module.h"

std::int32_t every_member_in_cpp17(const std::string &module); // cpp17.cpp

namespace {

class CppValues : public testing::TestWithParam<int32_t> {
protected:
    static ka::Options in_layout()
    {
        ka::Options options;
        options.layout = GetParam();
        return options;
    }
    ka::Host host{tasks_module, in_layout()};
};
IN_BOTH_LAYOUTS(CppValues);

// The return code of the string functions where the destination has no room.
constexpr int32_t no_room = 18;

// What "describe" makes of one argument.
int32_t arrived(int32_t kind, int32_t elements)
{
    return 100 * kind + elements;
}

// A REAL, multiplied by the module.
std::string scaled(ka::Host &host, std::string_view text, std::string_view factor)
{
    ka::Decimal value(text);
    EXPECT_EQ(host.call("scale_one", ka::ref(value), ka::Decimal(factor)), 0);
    return value.text;
}

} // namespace

TEST_P(CppValues, integers_go_in_and_come_back)
{
    std::int32_t sum = 0;
    EXPECT_EQ(host.call("add", 2, 40, ka::ref(sum)), 0);
    EXPECT_EQ(sum, 42);
    EXPECT_EQ(host.call("add", INT32_MIN, -1, ka::ref(sum)), 0);
    EXPECT_EQ(sum, INT32_MAX);
}

TEST_P(CppValues, narrow_integers_are_widened)
{
    EXPECT_EQ(host.call("give_code", true), 1);
    EXPECT_EQ(host.call("give_code", static_cast<signed char>(-5)), -5);
    EXPECT_EQ(host.call("give_code", static_cast<unsigned char>(200)), 200);
    EXPECT_EQ(host.call("give_code", static_cast<short>(-30000)), -30000);
    EXPECT_EQ(host.call("give_code", static_cast<unsigned short>(60000)), 60000);
}

TEST_P(CppValues, arrays_come_back_in_place)
{
    std::vector<std::int32_t> vector = {1, 2, 3};
    std::array<std::int32_t, 2> array = {4, 5};
    std::int32_t plain[] = {6, 7};
    std::span<std::int32_t> span(vector.data() + 1, 2);
    host.call("double", ka::ref(vector));
    host.call("double", ka::ref(array));
    host.call("double", ka::ref(plain));
    host.call("double", ka::ref(span));
    EXPECT_EQ(vector, std::vector<std::int32_t>({2, 8, 12}));
    EXPECT_EQ(array, (std::array<std::int32_t, 2>({8, 10})));
    EXPECT_EQ(plain[1], 14);
}

TEST_P(CppValues, by_value_nothing_comes_back)
{
    std::vector<std::int32_t> vector = {1, 2, 3};
    EXPECT_EQ(host.call("double", vector), 0);
    EXPECT_EQ(vector, std::vector<std::int32_t>({1, 2, 3}));
}

TEST_P(CppValues, doubles_are_reals)
{
    double one = 1.25;
    std::vector<double> many = {0.5, -2};
    EXPECT_EQ(host.call("scale_one", ka::ref(one), 2.0F), 0);
    EXPECT_EQ(host.call("scale", ka::ref(many), 3), 0);
    EXPECT_EQ(one, 2.5);
    EXPECT_EQ(many, std::vector<double>({1.5, -6}));
}

TEST_P(CppValues, records_are_reals)
{
    t_DECIMAL one = ka::Decimal("1.25").value();
    std::array<t_DECIMAL, 2> many = {one, one};
    host.call("scale_one", ka::ref(one), ka::Decimal("2").value());
    host.call("scale", ka::ref(many), 4);
    EXPECT_EQ(ka::Decimal(one).text, "2.5");
    EXPECT_EQ(ka::Decimal(many[1]).text, "5");
}

TEST(CallerCpp, decimal_tells_rounding_from_exactness)
{
    EXPECT_TRUE(ka::Decimal("12345678901234.56").is_exact());
    EXPECT_FALSE(ka::Decimal("12345678901234.567").is_exact());
    EXPECT_EQ(ka::Decimal(ka::Decimal("12345678901234567890").value()).text, "1.234567890123457E+19");
    EXPECT_FALSE(ka::Decimal("null").is_exact());
}

TEST_P(CppValues, decimal_text_is_a_real)
{
    EXPECT_EQ(scaled(host, "19.99", "3"), "59.97");
    EXPECT_EQ(scaled(host, "-1e20", "1"), "-1E+20");
    std::vector<ka::Decimal> many = {ka::Decimal("0.1"), ka::Decimal("0.2")};
    host.call("scale", ka::ref(many), ka::Decimal("10"));
    EXPECT_EQ(many[0].text, "1");
    EXPECT_EQ(many[1].text, "2");
}

// The module gives its argument impossible digits, which are read as null.
TEST_P(CppValues, null_real_comes_back_as_nan_and_as_null)
{
    const bool wide = GetParam() == KA_LAYOUT_64;
    const std::int32_t descriptor = (wide ? 48 : 40) + (wide ? 32 : 24);
    double number = 1;
    ka::Decimal text("1");
    double other = 1;
    host.call("forge_real", ka::ref(number), ka::ref(other), descriptor, wide ? 32 : 24);
    host.call("forge_real", ka::ref(text), ka::ref(other), descriptor, wide ? 32 : 24);
    EXPECT_TRUE(std::isnan(number));
    EXPECT_EQ(text.text, "null");
}

TEST_P(CppValues, strings_go_in_as_they_are)
{
    EXPECT_EQ(host.call("measure", "four"), 4);
    EXPECT_EQ(host.call("measure", std::string("12345")), 5);
    EXPECT_EQ(host.call("measure", std::string_view("123456").substr(0, 3)), 3);
    EXPECT_EQ(host.call("measure", ""), 0);
    EXPECT_EQ(host.call("measure", std::string_view()), 0);
}

TEST_P(CppValues, strings_come_back_as_long_as_they_became)
{
    std::string text = "a longer text than the greeting";
    EXPECT_EQ(host.call("greet", ka::ref(text, 0)), 0);
    EXPECT_EQ(text, "good day");
    text.clear();
    EXPECT_EQ(host.call("greet", ka::ref(text, 8)), 0);
    EXPECT_EQ(text, "good day");
    text = "short";
    EXPECT_EQ(host.call("greet", ka::ref(text, 7)), no_room);
    EXPECT_EQ(text, "short");
}

TEST_P(CppValues, string_arrays_come_back_in_place)
{
    std::vector<std::string> words = {"one", "", std::string("a\0b", 3)};
    EXPECT_EQ(host.call("shout", ka::ref(words, 4)), 0);
    EXPECT_EQ(words, std::vector<std::string>({"one!", "!", std::string("a\0b!", 4)}));
}

TEST_P(CppValues, string_by_value_can_have_room)
{
    EXPECT_EQ(host.call("greet", "x"), no_room);
    EXPECT_EQ(host.call("greet", ka::in("x", 20)), 0);
    EXPECT_EQ(host.call("shout", ka::in(std::vector<const char *>{"a", "b"}, 5)), 0);
}

TEST_P(CppValues, every_type_arrives_as_its_kind)
{
    const std::vector<std::string> texts = {"a", "b"};
    const std::array<double, 3> doubles = {};
    EXPECT_EQ(host.call("describe", 1, 1.5, "x"),
              arrived(KA_INT_BY_REFERENCE, 1) + arrived(KA_REAL_BY_REFERENCE, 1) + arrived(KA_STRING, 1));
    EXPECT_EQ(host.call("describe", texts, doubles, std::vector<std::string_view>{"x"}),
              arrived(KA_STRING_ARRAY, 2) + arrived(KA_REAL_ARRAY, 3) + arrived(KA_STRING, 1));
    EXPECT_EQ(host.call("describe", std::vector<std::int32_t>()), arrived(KA_INT_BY_REFERENCE, 0));
    EXPECT_EQ(host.call("describe", std::vector<ka::Decimal>()), arrived(KA_REAL_BY_REFERENCE, 0));
    EXPECT_EQ(host.call("describe"), 0);
}

TEST_P(CppValues, what_is_not_given_back_stays_as_it_is)
{
    std::int32_t a = 2, b = 3, sum = 0;
    EXPECT_EQ(host.call("add", ka::ref(a), ka::ref(b), ka::ref(sum)), 0);
    EXPECT_EQ(a, 2);
    EXPECT_EQ(sum, 5);
    EXPECT_FALSE(host.gives_back(1));
    EXPECT_TRUE(host.gives_back(3));
}

// The results of a function that fails come back, too.
TEST_P(CppValues, results_come_back_whatever_the_return_code)
{
    std::vector<std::string> words = {"ab", "abcd"};
    EXPECT_EQ(host.call("shout", ka::ref(words, 4)), no_room);
    EXPECT_EQ(words, std::vector<std::string>({"ab!", "abcd"}));
}

TEST_P(CppValues, call_is_built_step_by_step)
{
    std::vector<std::int32_t> numbers = {20, 22};
    std::int32_t sum = -1;
    host.begin("add");
    for (const std::int32_t number : numbers)
        host.add(number);
    host.add(ka::ref(sum));
    EXPECT_EQ(host.send(), 0);
    EXPECT_EQ(sum, -1);
    host.take(1, numbers[0]);
    host.take(3, sum);
    EXPECT_EQ(numbers[0], 20);
    EXPECT_EQ(sum, 42);
}

TEST(CppHeader, serves_cpp17)
{
    EXPECT_EQ(every_member_in_cpp17(tasks_module), 42);
}
