// SPDX-License-Identifier: MIT
//
// Each type of parameter: its kind in the tables, what the function gets, what comes back.
#include <gtest/gtest.h>

#include "ka/caller.hpp"
#include "ka/dll_module.h"
#include "module/ordinary.h"

IN_BOTH_LAYOUTS(Parameters);

TEST_P(Parameters, integers_go_in)
{
    EXPECT_EQ(host.call("integer_in", -5), -5);
    EXPECT_EQ(host.call("integer_in", 2.9), 2);
    EXPECT_EQ(host.call("integer_in_by_reference", 7), 7);
    EXPECT_EQ(host.call("integer_in", std::vector<std::int32_t>{3, 4}), 3);
}

TEST_P(Parameters, integers_are_changed)
{
    std::int32_t number = 21;
    EXPECT_EQ(host.call("integer_changed", ka::ref(number)), 0);
    EXPECT_EQ(number, 42);
    std::vector<std::int32_t> numbers = {1, 2};
    EXPECT_EQ(host.call("integer_changed", ka::ref(numbers)), 0);
    EXPECT_EQ(numbers, std::vector<std::int32_t>({2, 2}));
    EXPECT_EQ(host.call("integers", numbers), 2002);
}

TEST_P(Parameters, reals_go_in_and_are_changed)
{
    EXPECT_EQ(result_of("real_in", 2.5), 2.5);
    EXPECT_EQ(result_of("real_in", 7), 7);
    EXPECT_EQ(result_of("real_in_by_reference", -1e100), -1e100);
    double number = 0.1;
    EXPECT_EQ(host.call("real_changed", ka::ref(number)), 0);
    EXPECT_EQ(number, 0.2);
    EXPECT_EQ(result_of("reals", std::vector<double>{1, 2, 3}), 3);
    EXPECT_EQ(result_of("reals", std::vector<double>{}), -1);
}

TEST_P(Parameters, texts_go_in_with_zero_bytes)
{
    const std::string zero("a\0b", 3);
    EXPECT_EQ(length_in("text_in", zero), 1);
    EXPECT_EQ(length_in("view_in", zero), 3);
    EXPECT_EQ(length_in("view_in_by_reference", ""), 0);
    EXPECT_EQ(length_in("views", std::vector<std::string>{"a", "b", "cd"}), 3);
}

TEST_P(Parameters, strings_are_changed)
{
    std::string text = "word";
    EXPECT_EQ(host.call("string_changed", ka::ref(text, 9)), 0);
    EXPECT_EQ(text, "word!");
    std::vector<std::string> texts = {"a", "b"};
    EXPECT_EQ(host.call("strings_changed", ka::ref(texts, 9)), 0);
    EXPECT_EQ(texts, std::vector<std::string>({"a!", "b!"}));
    EXPECT_EQ(host.call("string_changed", ka::ref(texts, 9)), 0);
    EXPECT_EQ(texts, std::vector<std::string>({"a!!", "b!"}));
}

TEST_P(Parameters, rest_of_the_arguments_arrives_as_it_is)
{
    EXPECT_EQ(host.call("rest", 5), 5);
    EXPECT_EQ(host.call("rest", 5, 1, 2.5, "x"), 5111213);
    EXPECT_EQ(host.call("rest", 5, std::vector<std::int32_t>{1, 2, 3}, std::vector<double>{}), 53102);
    double sum = 9;
    EXPECT_EQ(host.call("sum_of_rest", ka::ref(sum), 1, 2.5, std::vector<double>{4, 100}), 0);
    EXPECT_EQ(sum, 7.5);
}

TEST_P(Parameters, rest_of_the_arguments_is_changed)
{
    std::vector<std::int32_t> numbers = {1, 2};
    double real = 2.5;
    std::string text = "ab";
    EXPECT_EQ(host.call("double_rest", ka::ref(numbers), ka::ref(real), ka::ref(text, 4)), 0);
    EXPECT_EQ(numbers, std::vector<std::int32_t>({2, 4}));
    EXPECT_EQ(real, 5);
    EXPECT_EQ(text, "abab");
}

TEST_P(Parameters, rest_asked_for_what_it_is_not_has_the_code_of_a_refusal)
{
    EXPECT_EQ(host.call("integer_of_rest", 2.9), 2);
    EXPECT_EQ(host.call("integer_of_rest", "x"), KA_WRONG_TYPE);
    EXPECT_EQ(host.call("integer_of_rest", std::vector<double>{}), KA_TOO_FEW_ELEMENTS);
    EXPECT_EQ(host.call("text_of_rest", "four"), 4);
    EXPECT_EQ(host.call("text_of_rest", 4), KA_WRONG_TYPE);
    EXPECT_EQ(host.call("text_of_rest", std::vector<std::string>{}), KA_TOO_FEW_ELEMENTS);
}

TEST_P(Parameters, fifty_arguments_arrive)
{
    host.begin("forty_nine");
    for (std::int32_t i = 1; i <= 49; i++)
        host.add(i);
    std::int32_t result = 0;
    host.add(ka::ref(result));
    EXPECT_EQ(host.send(), 0);
    host.take(50, result);
    EXPECT_EQ(result, 149);
}

// ---- No element --------------------------------------------------------------------------------------------------

namespace {

// Of an argument of no element, or even fewer, nothing is read.
class NoElement : public Parameters {
protected:
    // Of a module that is built without and one that is built with the sanitizers, which end it at a wrong access.
    template <typename... Arguments>
    std::int32_t code(const char *function, std::int32_t argument, std::int32_t elements,
                      const Arguments &...arguments)
    {
        const auto code_of = [&](const char *module) {
            return code_with_elements(module_path(module), in_layout(), function, argument, elements, arguments...);
        };
        const std::int32_t sanitized = code_of("ordinary_checked");
        EXPECT_EQ(code_of("ordinary"), sanitized);
        return sanitized;
    }
};
IN_BOTH_LAYOUTS(NoElement);

} // namespace

TEST_P(NoElement, no_scalar_is_made_of_it)
{
    for (const std::int32_t elements : {0, -1, INT32_MIN}) {
        const std::int32_t real_code = elements == 0 ? KA_TOO_FEW_ELEMENTS : KA_NO_MEMORY; // the call host's own
        std::int32_t number = 1;
        double real = 1;
        std::string text = "text";
        EXPECT_EQ(code("integer_in", 1, elements, 1), KA_TOO_FEW_ELEMENTS);
        EXPECT_EQ(code("integer_in_by_reference", 1, elements, 1), KA_TOO_FEW_ELEMENTS);
        EXPECT_EQ(code("integer_changed", 1, elements, ka::ref(number)), KA_TOO_FEW_ELEMENTS);
        EXPECT_EQ(code("real_changed", 1, elements, ka::ref(real)), real_code);
        EXPECT_EQ(code("real_in", 1, elements, real, ka::ref(real)), real_code);
        EXPECT_EQ(code("text_in", 1, elements, text, ka::ref(number)), KA_TOO_FEW_ELEMENTS);
        EXPECT_EQ(code("view_in", 1, elements, text, ka::ref(number)), real_code);
        EXPECT_EQ(code("string_changed", 1, elements, ka::ref(text, 9)), real_code);
        EXPECT_EQ(text, "text");
    }
}

TEST_P(NoElement, no_result_is_stored_in_it)
{
    std::int32_t number = 1;
    double real = 1;
    std::string text;
    EXPECT_EQ(code("integer_out", 1, 0, ka::ref(number)), KA_TOO_FEW_ELEMENTS);
    EXPECT_EQ(code("real_out", 1, 0, ka::ref(real)), KA_TOO_FEW_ELEMENTS);
    EXPECT_EQ(code("string_out", 1, 0, ka::ref(text, 9)), KA_TOO_FEW_ELEMENTS);
}

// ---- The tables --------------------------------------------------------------------------------------------------

namespace {

// "kind" or "kind>=least" of each prototype, with its name.
std::string prototypes_of(const std::string &function)
{
    const ka::Tables tables = ka::read_tables(ordinary_module);
    const ka_function *const found = tables.find(function);
    if (found == nullptr) return "none";
    std::string text;
    for (const ka_prototype &each : ka::Prototypes{*found}) {
        text += (text.empty() ? "" : " ") + std::string(each.name) + ":" + std::to_string(each.kind);
        if (each.min_elements != 0) text += ">=" + std::to_string(each.min_elements);
    }
    return text;
}

} // namespace

TEST(Prototypes, are_those_of_the_types)
{
    EXPECT_EQ(prototypes_of("integer_in"), "a:1");
    EXPECT_EQ(prototypes_of("integer_in_by_reference"), "a:1");
    EXPECT_EQ(prototypes_of("integer_changed"), "a:2");
    EXPECT_EQ(prototypes_of("integers"), "a:3>=2");
    EXPECT_EQ(prototypes_of("real_in"), "a:4 result:5");
    EXPECT_EQ(prototypes_of("real_in_by_reference"), "a:4 result:5");
    EXPECT_EQ(prototypes_of("real_changed"), "a:5");
    EXPECT_EQ(prototypes_of("reals"), "a:6 result:5");
    EXPECT_EQ(prototypes_of("text_in"), "a:7 result:2");
    EXPECT_EQ(prototypes_of("view_in"), "a:8 result:2");
    EXPECT_EQ(prototypes_of("string_changed"), "a:8");
    EXPECT_EQ(prototypes_of("strings_changed"), "a:9>=1");
    EXPECT_EQ(prototypes_of("views"), "a:9>=3 result:2");
    EXPECT_EQ(prototypes_of("rest"), "first:1 rest:0");
    EXPECT_EQ(prototypes_of("nothing"), "");
    EXPECT_EQ(prototypes_of("exact_out"), "result:5");
    EXPECT_EQ(prototypes_of("string_out"), "result:8");
    EXPECT_EQ(prototypes_of("result_behind"), "a:2 b:8 c:4 sum:2");
    EXPECT_EQ(prototypes_of("old_status"), "a:1");
}

TEST(Prototypes, functions_have_their_plain_names_or_the_given_ones)
{
    EXPECT_EQ(prototypes_of("of_integer"), "a:1 result:2");
    EXPECT_EQ(prototypes_of("of_real"), "a:4 result:5");
    EXPECT_EQ(prototypes_of("TWICE it!"), "a:1 result:2");
    EXPECT_EQ(prototypes_of("number"), "a:1 result:2");
    EXPECT_EQ(prototypes_of("rate"), "a:4 result:5");
}
