// SPDX-License-Identifier: MIT
//
// Fifty threads at the same time, each with a host of its own.
#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

#include "caller/hosts.h"
#include "scale/scale.h"

namespace {

constexpr int32_t thread_count = 50;

ka_options echoing()
{
    ka_options options = default_options();
    options.callback = [](ka_host *, int32_t value, void *) { return value + 1; };
    return options;
}

// GoogleTest's own checks are for one thread.
bool answers(ka_host *host, int32_t value)
{
    int32_t code = 0;
    ka_begin(host, "ask");
    ka_add_integer(host, value, KA_BY_VALUE);
    return ka_call(host, &code) == KA_DONE && code == value + 1;
}

// Runs work(number of the thread) in every thread.
void in_all_threads(const std::function<void(int32_t)> &work)
{
    std::vector<std::thread> threads;
    for (int32_t i = 0; i < thread_count; i++)
        threads.emplace_back(work, i);
    for (std::thread &thread : threads)
        thread.join();
}

} // namespace

// Replies to fifty threads are one pending signal: standard signals merge.
TEST(ManyThreads, get_each_the_answers_of_their_own_host)
{
    const ka_options options = echoing();
    std::vector<ka_host *> hosts(thread_count);
    for (ka_host *&host : hosts)
        ASSERT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_DONE);
    const int32_t count = rounds(20);
    std::atomic<int32_t> wrong = 0;
    {
        const Timed timed("calls with a call-back, in each of fifty threads", count);
        in_all_threads([&](int32_t thread) {
            for (int32_t i = 0; i < count; i++)
                if (!answers(hosts[static_cast<size_t>(thread)], thread * 100000 + i)) wrong++;
        });
    }
    EXPECT_EQ(wrong, 0);
    for (ka_host *host : hosts)
        ka_close(host);
}

TEST(ManyThreads, open_and_close_their_hosts_at_the_same_time)
{
    const ka_options options = echoing();
    std::atomic<int32_t> wrong = 0;
    const auto live = [&](int32_t thread) {
        ka_host *host;
        if (ka_open(&host, tasks_module.c_str(), &options) != KA_DONE || !answers(host, thread)) wrong++;
        ka_close(host);
    };
    in_all_threads(live);
    const Belongings before = Belongings::now();
    const int32_t count = (rounds(100) + thread_count - 1) / thread_count;
    {
        const Timed timed("hosts in each of fifty threads", count);
        in_all_threads([&](int32_t thread) {
            for (int32_t i = 0; i < count; i++)
                live(thread);
        });
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_TRUE(back_to(before));
}
