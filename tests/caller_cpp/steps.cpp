// SPDX-License-Identifier: MIT
//
// Calls in steps, and their cancellation, in C++.
#include <gtest/gtest.h>

#include <poll.h>
#include <stdexcept>

#include "caller/hosts.h"
#include "ka/caller.hpp"

TEST(CppSteps, call_is_taken_step_by_step)
{
    ka::Host host(tasks_module);
    host.on_callback([](std::int32_t) -> std::int32_t { throw std::runtime_error("is not called"); });
    host.begin("ask");
    host.add(7);
    host.start();
    ka::Step step = host.wait();
    ASSERT_EQ(step.what, KA_CALLBACK);
    EXPECT_EQ(step.value, 7);
    host.answer(8);
    step = host.wait();
    EXPECT_EQ(step.what, KA_RETURNED);
    EXPECT_EQ(step.value, 8);
    EXPECT_THROW(host.wait(), ka::Error);
}

TEST(CppSteps, results_are_taken_after_the_last)
{
    ka::Host host(tasks_module);
    std::int32_t sum = 0;
    host.begin("add");
    host.add(2);
    host.add(40);
    host.add(ka::ref(sum));
    const int fd = host.wait_fd();
    host.start();
    ka::Step step{KA_WAITING, 0};
    while (step.what == KA_WAITING) {
        struct pollfd one = {fd, POLLIN, 0};
        if (poll(&one, 1, -1) == 1) step = host.wait(0);
    }
    EXPECT_EQ(step.what, KA_RETURNED);
    host.take(3, sum);
    EXPECT_EQ(sum, 42);
}

TEST(CppSteps, cancelled_call_throws)
{
    ka::Host host(tasks_module);
    EXPECT_FALSE(host.cancel());
    host.begin("hang");
    host.start();
    EXPECT_EQ(host.wait(1).what, KA_WAITING);
    EXPECT_TRUE(host.cancel());
    EXPECT_THROW(host.wait(), ka::Error);
    EXPECT_EQ(host.error().error_class, KA_CANCELLED);
}

TEST(CppSteps, host_that_is_destroyed_between_them_is_closed)
{
    for (const char *function : {"nap", "ask"}) {
        std::int32_t pid = 0;
        {
            ka::Host host(tasks_module);
            host.begin(function);
            host.add(60000);
            host.start();
            EXPECT_EQ(host.wait(std::string(function) == "ask" ? -1 : 1).what,
                      std::string(function) == "ask" ? KA_CALLBACK : KA_WAITING);
            pid = host.pid();
        }
        EXPECT_TRUE(ends(pid));
    }
}
