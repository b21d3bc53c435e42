// SPDX-License-Identifier: MIT
//
// However a function leaves the processor's floating-point environment, its results are converted as ever.
#include <gtest/gtest.h>

#include <functional>
#include <numeric>
#include <random>

#include "driver/session.h"

namespace driver {
namespace {

using namespace harness;

// REALs that a function gets as doubles and gives back as they were: of 14 decimals, all sizes.
std::vector<std::string> values()
{
    std::mt19937_64 draw(20261122);
    std::vector<std::string> texts;
    for (int i = 0; i < 1000; i++) {
        const std::string decimals = std::to_string(draw() % 90000000000000 + 10000000000000);
        const int exponent = static_cast<int>(draw() % 200) - 100;
        texts.push_back((draw() % 2 ? "-" : "") + decimals + "e" + std::to_string(exponent));
    }
    return texts;
}

class Environment : public testing::TestWithParam<const char *> {
protected:
    Block block_{Layout::native, 65536};
    HostProcess host_{block_, "environment"};
};
INSTANTIATE_TEST_SUITE_P(Functions, Environment,
                         testing::Values("nothing", "round_up", "round_to_zero", "single_precision", "no_denormals",
                                         "traps", "pending_trap", "full_stack"),
                         [](const auto &function) { return std::string(function.param); });

TEST_P(Environment, that_a_function_leaves_does_not_reach_its_results)
{
    const Argument given = reals(values());
    place(block_, GetParam(), {given.by_ref()});
    EXPECT_EQ(host_.call(), 0);
    const std::vector<std::string> after = reals_of(block_, 1);
    place(block_, GetParam(), {given});
    const std::vector<std::string> before = reals_of(block_, 1);
    ASSERT_EQ(after.size(), before.size());
    const auto changed = std::inner_product(after.begin(), after.end(), before.begin(), 0, std::plus<>(),
                                            [](const auto &a, const auto &b) { return a == b ? 0 : 1; });
    EXPECT_EQ(changed, 0) << "of " << before.size();
    EXPECT_EQ(host_.terminate(), exited(0));
}

TEST_P(Environment, that_a_function_leaves_does_not_reach_the_next_call)
{
    const Argument given = reals(values());
    for (const char *function : {GetParam(), "nothing"}) {
        place(block_, function, {given.by_ref()});
        EXPECT_EQ(host_.call(), 0);
    }
    const std::vector<std::string> after = reals_of(block_, 1);
    place(block_, "nothing", {given});
    EXPECT_EQ(after, reals_of(block_, 1));
}

TEST(EnvironmentOfACall, is_the_functions_own_across_a_callback)
{
    Block block;
    HostProcess host(block, "environment");
    place(block, "rounding_after_callback");
    EXPECT_EQ(host.call({5}), 1);
}

} // namespace
} // namespace driver
