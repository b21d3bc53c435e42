// SPDX-License-Identifier: MIT
//
// A host gives no sign when it is ready, so its first call can arrive at any moment of its start: before the module
// runs, while the loader works, before the handler is there. None may be lost, above all not where starts take long.
#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <thread>

#include "caller/hosts.h"
#include "scale/scale.h"

namespace {

class FirstCalls : public testing::TestWithParam<int32_t> {
protected:
    static void waiting(ka_options &options)
    {
        options.waiting = GetParam();
        options.deadline_ms = 120000; // a lost call would never be answered, however long one waits
    }
};
INSTANTIATE_TEST_SUITE_P(Waiting, FirstCalls, testing::Values(KA_WAIT_SAFE, KA_WAIT_FAST),
                         [](const auto &mode) { return mode.param == KA_WAIT_SAFE ? "safe" : "fast"; });

} // namespace

TEST_P(FirstCalls, right_after_the_start_on_a_loaded_machine_are_answered)
{
    const Load load(2);
    const int32_t count = rounds(100);
    const Timed timed("starts and first calls on a loaded machine", count);
    for (int32_t i = 0; i < count; i++) {
        Host host(waiting);
        ASSERT_EQ(call_with(host, "give_code", i), i);
    }
}

// The start takes a few milliseconds; the pauses are spread over it.
TEST_P(FirstCalls, at_every_moment_of_the_start_are_answered)
{
    const Load load(1);
    const int32_t count = rounds(100);
    const Timed timed("starts with a first call at a random moment", count);
    std::mt19937 random(1);
    for (int32_t i = 0; i < count; i++) {
        Host host(waiting);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 5000));
        ASSERT_EQ(call_with(host, "give_code", i), i);
    }
}

TEST_P(FirstCalls, of_hosts_that_start_beside_each_other_are_answered)
{
    const Load load(1);
    constexpr int32_t beside = 10;
    const int32_t count = rounds(100) / beside;
    const Timed timed("times ten starts beside each other", count);
    for (int32_t i = 0; i < count; i++) {
        std::vector<std::unique_ptr<Host>> hosts;
        for (int32_t k = 0; k < beside; k++)
            hosts.push_back(std::make_unique<Host>(waiting));
        for (int32_t k = beside - 1; k >= 0; k--)
            ASSERT_EQ(call_with(*hosts[static_cast<size_t>(k)], "give_code", 10 * i + k), 10 * i + k);
    }
}
