// SPDX-License-Identifier: MIT
//
// Call-backs as functions of C++, and what becomes of their exceptions.
#include <gtest/gtest.h>

#include "caller/hosts.h"
#include "ka/caller.hpp"

namespace {

struct Sorry : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace

TEST(CppCallback, is_any_function)
{
    ka::Host host(tasks_module);
    EXPECT_EQ(host.call("ask", 5), 0);
    std::vector<std::int32_t> values;
    host.on_callback([&](std::int32_t value) {
        values.push_back(value);
        return value * 10;
    });
    EXPECT_EQ(host.call("ask", 5), 50);
    host.on_callback([](std::int32_t value) { return -value; });
    EXPECT_EQ(host.call("ask", 5), -5);
    EXPECT_EQ(values, std::vector<std::int32_t>({5}));
    host.on_callback(nullptr);
    EXPECT_EQ(host.call("ask", 5), 0);
}

TEST(CppCallback, may_set_the_one_of_the_next_call)
{
    ka::Host host(tasks_module);
    const std::string kept(100, 'k');
    int whole = 0;
    host.on_callback([&host, &whole, kept](std::int32_t value) {
        if (value == 0) host.on_callback([](std::int32_t) { return 1000; });
        EXPECT_EQ(host.try_call("ask", 1).error_class, KA_ARGUMENT);
        if (kept == std::string(100, 'k')) whole++;
        return value;
    });
    std::int32_t sum = 0;
    host.call("ask_many", 3, ka::ref(sum));
    EXPECT_EQ(sum, 0 + 1 + 2);
    EXPECT_EQ(whole, 3);
    EXPECT_EQ(host.call("ask", 5), 1000);
}

TEST(CppCallback, one_of_the_options_serves_until_another_is_set)
{
    std::int32_t base = 100;
    ka::Options options;
    options.user = &base;
    options.callback = [](ka_host *, std::int32_t value, void *user) {
        return *static_cast<std::int32_t *>(user) + value;
    };
    ka::Host host(tasks_module, options);
    EXPECT_EQ(host.call("ask", 5), 105);
    host.on_callback([](std::int32_t) { return 1; });
    EXPECT_EQ(host.call("ask", 5), 1);
}

TEST(CppCallback, exception_comes_out_of_the_call_and_the_host_lives_on)
{
    ka::Host host(tasks_module);
    std::int32_t asked = 0;
    host.on_callback([&](std::int32_t value) -> std::int32_t {
        asked++;
        if (value == 3) throw Sorry("three");
        return value;
    });
    std::int32_t sum = -1;
    const pid_t pid = host.pid();
    EXPECT_THROW(host.call("ask_many", 10, ka::ref(sum)), Sorry);
    EXPECT_EQ(asked, 4);
    EXPECT_EQ(sum, 0 + 1 + 2);
    EXPECT_EQ(host.pid(), pid);
    EXPECT_EQ(host.call("ask_many", 3, ka::ref(sum)), 0);
    EXPECT_EQ(sum, 3);
}

TEST(CppCallback, what_the_module_hears_after_an_exception_can_be_set)
{
    ka::Host host(tasks_module);
    host.on_callback([](std::int32_t) -> std::int32_t { throw Sorry("always"); }, -1);
    std::int32_t sum = 0;
    EXPECT_THROW(host.try_call("ask_many", 10, ka::ref(sum)), Sorry);
    EXPECT_EQ(sum, -10);
    host.begin("ask");
    host.add(1);
    EXPECT_THROW(host.try_send(), Sorry);
    host.begin("ask");
    host.add(1);
    EXPECT_THROW(host.send(), Sorry);
}

// The exception came first, and the death may be its consequence.
TEST(CppCallback, exception_comes_before_the_error_of_the_call)
{
    ka::Host host(tasks_module);
    host.on_callback([&](std::int32_t) -> std::int32_t {
        kill(host.pid(), SIGKILL);
        throw Sorry("too late");
    });
    EXPECT_THROW(host.call("ask", 1), Sorry);
    EXPECT_EQ(host.error().error_class, KA_DIED);
}

TEST(CppCallback, error_of_a_call_inside_comes_out)
{
    ka::Host host(tasks_module);
    host.on_callback([&](std::int32_t value) { return host.call("give_code", value); });
    try {
        host.call("ask", 1);
        FAIL() << "no exception";
    } catch (const ka::Error &error) {
        EXPECT_EQ(error.error_class(), KA_ARGUMENT);
    }
    host.on_callback([](std::int32_t value) { return value; });
    EXPECT_EQ(host.call("ask", 8), 8);
}

TEST(CppCallback, array_that_changes_its_size_meanwhile_is_safe)
{
    ka::Host host(tasks_module);
    std::vector<std::int32_t> sums = {-1};
    std::size_t size = 100;
    host.on_callback([&](std::int32_t) {
        sums.resize(size);
        return 5;
    });
    EXPECT_EQ(host.try_call("ask_many", 1, ka::ref(sums)).error_class, KA_ARGUMENT);
    EXPECT_EQ(sums[0], -1);
    size = 0;
    EXPECT_EQ(host.call("ask_many", 1, ka::ref(sums)), 0);
    EXPECT_TRUE(sums.empty());
}
