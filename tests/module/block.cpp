// SPDX-License-Identifier: MIT
//
// INTEGERs at every alignment and every distance from each other, with and without optimization and with a sanitizer
// that ends the process at undefined behaviour; arrays in algorithms.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <tuple>

#include "ka/caller.hpp"
#include "module/hosts_of.h"

namespace {

// One array of INTEGERs in the segment, at an address and with a distance of the test's choice. They lie in the room
// of a string, which the caller's library reads back as it was added.
class Block : public testing::TestWithParam<std::tuple<const char *, int32_t>> {
protected:
    static constexpr std::int32_t count = 19;
    static constexpr std::int32_t bytes = count * 5 * 4 + 16;

    static ka::Options raw()
    {
        ka::Options options;
        options.layout = std::get<1>(GetParam());
        options.checking = KA_RAW;
        return options;
    }

    // Calls function with numbers at offset + 4 * words * k; what they are afterwards. Nothing else is written to.
    std::vector<std::int32_t> changed(const char *function, const std::vector<std::int32_t> &numbers,
                                      std::int32_t offset, std::int32_t words)
    {
        std::string room(bytes, '\x5a');
        for (std::size_t k = 0; k < numbers.size(); k++)
            std::memcpy(&room[place(k, offset, words)], &numbers[k], 4);
        const std::string before = room;
        host.begin(function);
        host.add(ka::ref(room, 0));
        ka_descriptor descriptor = host.descriptor(1);
        descriptor.type = DLL_INTEGER;
        descriptor.offset += 4 + offset;
        descriptor.elsz = words;
        descriptor.elcnt = static_cast<std::int32_t>(numbers.size());
        host.set_descriptor(1, descriptor);
        EXPECT_EQ(host.send(), 0);
        host.take(1, room);
        std::vector<std::int32_t> found(numbers.size());
        for (std::size_t k = 0; k < numbers.size(); k++) {
            std::memcpy(&found[k], &room[place(k, offset, words)], 4);
            std::memcpy(&room[place(k, offset, words)], &numbers[k], 4);
        }
        EXPECT_EQ(room, before);
        return found;
    }
    static std::size_t place(std::size_t k, std::int32_t offset, std::int32_t words)
    {
        return static_cast<std::size_t>(offset) + 4 * static_cast<std::size_t>(words) * k;
    }

    ka::Host host{module_path(std::get<0>(GetParam())), raw()};
};
INSTANTIATE_TEST_SUITE_P(Builds, Block,
                         testing::Combine(testing::Values("block", "block_plain", "block_fast", "block_checked"),
                                          testing::Values(KA_LAYOUT_NATIVE, KA_LAYOUT_64)),
                         [](const auto &build) {
                             return std::string(std::get<0>(build.param)) +
                                    (std::get<1>(build.param) == KA_LAYOUT_64 ? "_layout_64" : "_native");
                         });

} // namespace

TEST_P(Block, integers_are_changed_at_every_alignment_and_distance)
{
    std::vector<std::int32_t> numbers(count), doubled(count), sorted(count);
    for (std::size_t k = 0; k < numbers.size(); k++)
        numbers[k] = static_cast<std::int32_t>((k * 7919) % 101) - 50;
    std::transform(numbers.begin(), numbers.end(), doubled.begin(), [](std::int32_t x) { return 2 * x; });
    std::partial_sort_copy(numbers.begin(), numbers.end(), sorted.begin(), sorted.end());
    for (std::int32_t offset = 0; offset < 16; offset++) {
        for (std::int32_t words = 1; words <= 5; words++) {
            EXPECT_EQ(changed("twice", numbers, offset, words), doubled) << offset << " " << words;
            EXPECT_EQ(changed("sort", numbers, offset, words), sorted) << offset << " " << words;
        }
        EXPECT_EQ(changed("change", {7}, offset, 1), std::vector<std::int32_t>{-7}) << offset;
    }
}

TEST_P(Block, a_scalar_changes_the_first_element_only)
{
    EXPECT_EQ(changed("change", {7, 8, 9}, 3, 2), std::vector<std::int32_t>({-7, 8, 9}));
}

TEST_P(Block, every_operator_computes)
{
    EXPECT_EQ(changed("every_operator", {7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7}, 1, 1),
              std::vector<std::int32_t>({9, 5, 14, 3, 1, 2, 7, 5, 28, 1, 8, 6, 15, 7}));
}

TEST_P(Block, algorithms_work_on_arrays)
{
    const std::vector<std::int32_t> numbers = {5, -3, 40};
    std::int32_t sum = 1;
    EXPECT_EQ(host.call("total", numbers, ka::ref(sum)), 0);
    EXPECT_EQ(sum, 42);
    EXPECT_EQ(host.call("total", std::vector<std::int32_t>(), ka::ref(sum)), 0);
    EXPECT_EQ(sum, 0);
    std::vector<double> reals = {1, 3, 2};
    EXPECT_EQ(host.call("sort_reals", ka::ref(reals)), 0);
    EXPECT_EQ(reals, std::vector<double>({3, 2, 1}));
}

TEST_P(Block, algorithms_work_on_strings)
{
    std::vector<std::string> texts = {"pear", "", "fig", "apple", "figs", "a\xff"};
    for (int i = 0; i < 40; i++)
        texts.push_back(std::to_string(i * 7919 % 101));
    std::vector<std::string> expected = texts;
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(host.call("sort_texts", ka::ref(texts, 6)), 0);
    EXPECT_EQ(texts, expected);
    std::reverse(expected.begin(), expected.end());
    EXPECT_EQ(host.call("reverse_texts", ka::ref(texts, 6)), 0);
    EXPECT_EQ(texts, expected);
    std::string out;
    EXPECT_EQ(host.call("walk", std::vector<std::string>{"a", "bc", "d"}, ka::ref(out, 9)), 0);
    EXPECT_EQ(out, "adbca");
}
