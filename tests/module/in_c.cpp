// SPDX-License-Identifier: MIT
//
// Ordinary functions in C: each kind of parameter, its prototype, what the function gets and what comes back;
// INTEGERs at every alignment and every distance from each other; arguments without elements. The module is built
// without and with optimization, by both compilers, and with the sanitizer that ends the process at undefined
// behaviour.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <tuple>

#include "ka/caller.hpp"
#include "ka/dll_module.h"
#include "ka/kastring.h"
#include "module/hosts_of.h"

namespace {

class InC : public testing::TestWithParam<std::tuple<const char *, int32_t>> {
protected:
    ka::Options with(std::int32_t checking) const
    {
        ka::Options options;
        options.layout = std::get<1>(GetParam());
        options.checking = checking;
        return options;
    }
    std::string module() const { return module_path(std::get<0>(GetParam())); }

    // Calls function with numbers at offset + 4 * words * k of the room of a string, which the caller's library reads
    // back as it was added; what they are afterwards. Nothing else is written to.
    std::vector<std::int32_t> changed(ka::Host &unchecked, const char *function,
                                      const std::vector<std::int32_t> &numbers, std::int32_t offset,
                                      std::int32_t words)
    {
        const auto place = [&](std::size_t k) {
            return static_cast<std::size_t>(offset) + 4 * static_cast<std::size_t>(words) * k;
        };
        std::string room(19 * 5 * 4 + 16, '\x5a');
        for (std::size_t k = 0; k < numbers.size(); k++)
            std::memcpy(&room[place(k)], &numbers[k], 4);
        const std::string before = room;
        unchecked.begin(function);
        unchecked.add(ka::ref(room, 0));
        ka_descriptor descriptor = unchecked.descriptor(1);
        descriptor.type = DLL_INTEGER;
        descriptor.offset += 4 + offset;
        descriptor.elsz = words;
        descriptor.elcnt = static_cast<std::int32_t>(numbers.size());
        unchecked.set_descriptor(1, descriptor);
        EXPECT_EQ(unchecked.send(), 0) << function;
        unchecked.take(1, room);
        std::vector<std::int32_t> found(numbers.size());
        for (std::size_t k = 0; k < numbers.size(); k++) {
            std::memcpy(&found[k], &room[place(k)], 4);
            std::memcpy(&room[place(k)], &numbers[k], 4);
        }
        EXPECT_EQ(room, before);
        return found;
    }

    // The code of a call in which an argument has that many elements.
    template <typename... Arguments>
    std::int32_t code(const char *function, std::int32_t argument, std::int32_t elements,
                      const Arguments &...arguments)
    {
        return code_with_elements(module(), with(KA_RAW), function, argument, elements, arguments...);
    }

    ka::Host host{module(), with(ka::Options().checking)};
};

const char *const builds[] = {
    "c_plain", "c_fast",          "c_checked",
#ifdef BUILT_BY_CLANG
    "c_clang", "c_clang_checked",
#endif
};
INSTANTIATE_TEST_SUITE_P(Builds, InC,
                         testing::Combine(testing::ValuesIn(builds), testing::Values(KA_LAYOUT_NATIVE, KA_LAYOUT_64)),
                         [](const auto &build) {
                             return std::string(std::get<0>(build.param)) +
                                    (std::get<1>(build.param) == KA_LAYOUT_64 ? "_layout_64" : "_native");
                         });

} // namespace

// ---- What arrives, and what comes back ---------------------------------------------------------------------------

TEST_P(InC, integers_go_in_and_are_changed)
{
    EXPECT_EQ(host.call("integer_in", -5), -5);
    EXPECT_EQ(host.call("integer_in", 2.9), 2);
    EXPECT_EQ(host.call("integer_in", std::vector<std::int32_t>{3, 4}), 3);
    std::int32_t number = 21;
    EXPECT_EQ(host.call("integer_changed", ka::ref(number)), 0);
    EXPECT_EQ(number, 42);
    std::vector<std::int32_t> numbers = {1, 2};
    EXPECT_EQ(host.call("integer_changed", ka::ref(numbers)), 0);
    EXPECT_EQ(numbers, std::vector<std::int32_t>({2, 2}));
    EXPECT_EQ(host.call("integers", numbers), 2002);
    EXPECT_EQ(host.call("at", 1, 20, 300, ka::ref(number)), 0);
    EXPECT_EQ(number, 321);
}

TEST_P(InC, reals_go_in_and_are_changed)
{
    double number = 0;
    EXPECT_EQ(host.call("real_in", 2.5, ka::ref(number)), 0);
    EXPECT_EQ(number, 2.5);
    EXPECT_EQ(host.call("real_in", -7, ka::ref(number)), 0);
    EXPECT_EQ(number, -7);
    EXPECT_EQ(host.call("real_changed", ka::ref(number)), 0);
    EXPECT_EQ(number, -14);
    EXPECT_EQ(host.call("reals", std::vector<double>{1, 2, 3}, ka::ref(number)), 3);
    EXPECT_EQ(number, 3);
    EXPECT_EQ(host.call("reals", std::vector<double>{}, ka::ref(number)), 0);
    EXPECT_EQ(number, -1);
}

TEST_P(InC, texts_go_in_and_are_changed)
{
    EXPECT_EQ(host.call("text_in", "four"), 4);
    EXPECT_EQ(host.call("text_in", ""), 0);
    std::string text = "word";
    EXPECT_EQ(host.call("string_changed", ka::ref(text, 5)), 0);
    EXPECT_EQ(text, "word!");
    EXPECT_EQ(host.call("string_changed", ka::ref(text, 5)), KASTR_NO_ROOM);
    std::vector<std::string> texts = {"a", "", "c"};
    EXPECT_EQ(host.call("strings_changed", ka::ref(texts, 9)), 0);
    EXPECT_EQ(texts, std::vector<std::string>({"a!", "!", "c!"}));
}

TEST_P(InC, rest_of_the_arguments_arrives_and_is_changed)
{
    EXPECT_EQ(host.call("rest", 5), 5);
    EXPECT_EQ(host.call("rest", 5, std::vector<std::int32_t>{1, 2, 3}, 2.5, "x"),
              5000000 + (30 + DLL_INTEGER) * 10000 + (10 + DLL_REAL) * 100 + 10 + DLL_STRING);
    EXPECT_EQ(host.call("double_rest"), 0);
    std::vector<std::int32_t> numbers = {1, 2};
    std::vector<double> reals = {2.5, 4};
    std::string text = "ab";
    EXPECT_EQ(host.call("double_rest", ka::ref(numbers), ka::ref(reals), ka::ref(text, 4)), 0);
    EXPECT_EQ(numbers, std::vector<std::int32_t>({2, 4}));
    EXPECT_EQ(reals, std::vector<double>({5, 8}));
    EXPECT_EQ(text, "ab!");
}

TEST_P(InC, no_and_fifty_arguments_arrive)
{
    EXPECT_EQ(host.call("nothing"), 42);
    host.begin("fifty");
    std::int32_t expected = 0;
    for (std::int32_t i = 1; i <= 49; i++) {
        host.add(1000 - 7 * i);
        expected += i * (1000 - 7 * i);
    }
    std::int32_t sum = 0;
    host.add(ka::ref(sum));
    EXPECT_EQ(host.send(), 0);
    host.take(50, sum);
    EXPECT_EQ(sum, expected);
}

// ---- INTEGERs in the block ---------------------------------------------------------------------------------------

TEST_P(InC, integers_are_changed_at_every_alignment_and_distance)
{
    ka::Host unchecked(module(), with(KA_RAW));
    std::vector<std::int32_t> numbers(19), doubled(19), reversed(19);
    std::iota(numbers.begin(), numbers.end(), -9000);
    std::transform(numbers.begin(), numbers.end(), doubled.begin(), [](std::int32_t x) { return 2 * x; });
    std::reverse_copy(numbers.begin(), numbers.end(), reversed.begin());
    for (std::int32_t offset = 0; offset < 16; offset++) {
        for (std::int32_t words = 1; words <= 5; words++) {
            EXPECT_EQ(changed(unchecked, "twice", numbers, offset, words), doubled) << offset << " " << words;
            EXPECT_EQ(changed(unchecked, "reverse", numbers, offset, words), reversed) << offset << " " << words;
        }
        EXPECT_EQ(changed(unchecked, "twice_in_a_row", numbers, offset, 1), doubled) << offset;
        EXPECT_EQ(changed(unchecked, "double_rest", {7}, offset, 1), std::vector<std::int32_t>{14}) << offset;
        EXPECT_EQ(changed(unchecked, "negate", {7}, offset, 1), std::vector<std::int32_t>{-7}) << offset;
        EXPECT_EQ(changed(unchecked, "negate", {7, 8}, offset, 3), std::vector<std::int32_t>({-7, 8})) << offset;
    }
}

// ---- No element --------------------------------------------------------------------------------------------------

TEST_P(InC, no_scalar_is_made_of_an_argument_without_elements)
{
    for (const std::int32_t elements : {0, -1, INT32_MIN}) {
        const std::int32_t converted = elements == 0 ? KA_TOO_FEW_ELEMENTS : KA_NO_MEMORY; // the call host's own
        std::int32_t number = 1;
        double real = 1;
        std::string text = "text";
        EXPECT_EQ(code("integer_in", 1, elements, 1), KA_TOO_FEW_ELEMENTS);
        EXPECT_EQ(code("integer_in", 1, elements, 1.5), converted);
        EXPECT_EQ(code("integer_changed", 1, elements, ka::ref(number)), KA_TOO_FEW_ELEMENTS);
        EXPECT_EQ(code("at", 4, elements, 1, 2, 3, ka::ref(number)), KA_TOO_FEW_ELEMENTS);
        EXPECT_EQ(code("real_in", 1, elements, real, ka::ref(real)), converted);
        EXPECT_EQ(code("real_in", 2, elements, real, ka::ref(real)), converted);
        EXPECT_EQ(code("real_changed", 1, elements, ka::ref(real)), converted);
        EXPECT_EQ(code("text_in", 1, elements, text), KA_TOO_FEW_ELEMENTS);
        EXPECT_EQ(code("string_changed", 1, elements, ka::ref(text, 9)), converted);
        EXPECT_EQ(text, "text");
    }
}

TEST_P(InC, an_array_without_elements_is_empty_or_refused)
{
    std::vector<std::int32_t> numbers = {1};
    std::vector<double> reals = {1};
    double last = 0;
    std::string text = "text";
    EXPECT_EQ(code("twice", 1, 0, ka::ref(numbers)), KA_TOO_FEW_ELEMENTS);
    EXPECT_EQ(code("twice", 1, -1, ka::ref(numbers)), KA_TOO_FEW_ELEMENTS);
    EXPECT_EQ(code("reals", 1, 0, ka::ref(reals), ka::ref(last)), 0);
    EXPECT_EQ(code("reals", 1, -1, ka::ref(reals), ka::ref(last)), KA_TOO_FEW_ELEMENTS);
    for (const std::int32_t elements : {0, -1, INT32_MIN})
        EXPECT_EQ(code("double_rest", 1, elements, ka::ref(numbers)), 0);
    EXPECT_EQ(code("double_rest", 1, 0, ka::ref(reals)), 0); // the buffers of these have no room at all
    EXPECT_EQ(code("double_rest", 1, 0, ka::ref(text, 9)), 0);
}

// ---- The tables --------------------------------------------------------------------------------------------------

TEST_P(InC, prototypes_are_those_of_the_lines)
{
    const ka::Tables tables = ka::read_tables(module());
    const auto prototypes_of = [&](const char *function) {
        const ka_function *const found = tables.find(function);
        if (found == nullptr) return std::string("none");
        std::string text;
        for (const ka_prototype &each : ka::Prototypes{*found}) {
            text += (text.empty() ? "" : " ") + std::string(each.name) + ":" + std::to_string(each.kind);
            if (each.min_elements != 0) text += ">=" + std::to_string(each.min_elements);
        }
        return text;
    };
    EXPECT_EQ(prototypes_of("integer_in"), "a:1");
    EXPECT_EQ(prototypes_of("integer_changed"), "a:2");
    EXPECT_EQ(prototypes_of("integers"), "a:3>=2");
    EXPECT_EQ(prototypes_of("real_in"), "a:4 copy:5");
    EXPECT_EQ(prototypes_of("real_changed"), "a:5");
    EXPECT_EQ(prototypes_of("reals"), "a:6 last:5");
    EXPECT_EQ(prototypes_of("text_in"), "a:7");
    EXPECT_EQ(prototypes_of("string_changed"), "a:8");
    EXPECT_EQ(prototypes_of("strings_changed"), "a:9>=1");
    EXPECT_EQ(prototypes_of("rest"), "first:1 more:0");
    EXPECT_EQ(prototypes_of("nothing"), "");
    EXPECT_EQ(prototypes_of("at"), "argv:1 n:1 code:1 index:2");
    EXPECT_EQ(prototypes_of("fifty").substr(0, 15), "a1:1 a2:4 a3:1 ");
}
