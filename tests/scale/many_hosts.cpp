// SPDX-License-Identifier: MIT
//
// Fifty hosts open at once.
#include <csignal>
#include <gtest/gtest.h>
#include <memory>

#include "caller/hosts.h"
#include "scale/scale.h"

namespace {

constexpr size_t host_count = 50;
using Hosts = std::vector<std::unique_ptr<Host>>;

Hosts open_hosts(const std::function<void(ka_options &)> &adjust = {})
{
    Hosts hosts;
    for (size_t i = 0; i < host_count; i++)
        hosts.push_back(std::make_unique<Host>(adjust));
    return hosts;
}

int32_t index_of(size_t i)
{
    return static_cast<int32_t>(i);
}

// Each host's call-back calls the next host.
struct Chain {
    Hosts hosts;
    size_t depth = 0;
};

int32_t call_next(ka_host *, int32_t value, void *user)
{
    auto *chain = static_cast<Chain *>(user);
    if (++chain->depth == chain->hosts.size()) return value;
    return call_with(*chain->hosts[chain->depth], "ask", value + 1);
}

class ManyHosts : public testing::TestWithParam<int32_t> {
protected:
    static void waiting(ka_options &options) { options.waiting = GetParam(); }
};
INSTANTIATE_TEST_SUITE_P(Waiting, ManyHosts, testing::Values(KA_WAIT_SAFE, KA_WAIT_FAST),
                         [](const auto &mode) { return mode.param == KA_WAIT_SAFE ? "safe" : "fast"; });

} // namespace

TEST_P(ManyHosts, answer_in_any_order)
{
    const Hosts hosts = open_hosts(waiting);
    const int32_t count = rounds(20);
    const Timed timed("calls of each of fifty hosts", count);
    for (int32_t round = 0; round < count; round++) {
        for (size_t i = 0; i < host_count; i++) {
            const size_t chosen = i * 37 % host_count;
            ASSERT_EQ(call_with(*hosts[chosen], "give_code", index_of(chosen)), index_of(chosen));
        }
    }
    for (const auto &host : hosts)
        EXPECT_EQ(call_with(*host, "give_code", -1), -1);
}

TEST_P(ManyHosts, call_each_other_fifty_deep)
{
    Chain chain;
    chain.hosts = open_hosts([&](ka_options &options) {
        waiting(options);
        options.callback = call_next;
        options.user = &chain;
    });
    for (int32_t round = 0; round < 10; round++) {
        chain.depth = 0;
        ASSERT_EQ(call_with(*chain.hosts[0], "ask", 0), index_of(host_count) - 1);
    }
}

TEST_P(ManyHosts, do_not_suffer_from_the_death_of_others)
{
    Hosts hosts = open_hosts(waiting);
    for (size_t i = 0; i < host_count; i += 2)
        kill(ka_pid(*hosts[i]), SIGKILL);
    for (size_t i = 0; i < host_count; i++) {
        ka_begin(*hosts[i], "count_call");
        if (i % 2 == 0)
            EXPECT_EQ(call_fails(*hosts[i]), KA_DIED);
        else
            EXPECT_EQ(call(*hosts[i]), 1);
    }
    for (size_t i = 0; i < host_count; i += 3)
        hosts[i].reset();
    for (size_t i = 0; i < host_count; i++) {
        if (i % 2 == 1 && i % 3 != 0) {
            EXPECT_EQ(call_with(*hosts[i], "give_code", 9), 9);
        }
    }
}

TEST_P(ManyHosts, leave_nothing)
{
    open_hosts(waiting);
    const Belongings before = Belongings::now();
    open_hosts(waiting);
    EXPECT_TRUE(back_to(before));
}
