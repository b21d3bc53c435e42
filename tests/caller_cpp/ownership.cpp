// SPDX-License-Identifier: MIT
//
// A host lives exactly as long as its object, which can be moved.
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <optional>
#include <unistd.h>

#include "caller/hosts.h"
#include "ka/caller.hpp"

static_assert(!std::is_copy_constructible_v<ka::Host> && !std::is_copy_assignable_v<ka::Host>);
static_assert(std::is_nothrow_move_constructible_v<ka::Host> && std::is_nothrow_move_assignable_v<ka::Host>);
static_assert(std::is_nothrow_copy_constructible_v<ka::Error>);

TEST(CppHost, ends_with_its_object)
{
    pid_t pid;
    int segment;
    start_library_thread();
    const int before = open_descriptors();
    {
        ka::Host host(tasks_module);
        pid = host.pid();
        segment = segment_of(pid);
        EXPECT_EQ(kill(pid, 0), 0);
    }
    EXPECT_EQ(kill(pid, 0), -1);
    EXPECT_TRUE(segment_vanishes(segment));
    EXPECT_EQ(open_descriptors(), before);
}

TEST(CppHost, is_retired_before_its_object_ends)
{
    ka::Host host(tasks_module);
    const pid_t pid = host.pid();
    host.retire();
    EXPECT_EQ(kill(pid, 0), -1);
    EXPECT_EQ(host.pid(), 0);
    EXPECT_THROW(host.call("give_code", 1), ka::Error);
    host.retire();
}

TEST(CppHost, ends_when_an_exception_passes)
{
    pid_t pid = 0;
    const auto use = [&] {
        ka::Host host(tasks_module);
        pid = host.pid();
        host.call("give_code", ka::Decimal("not a number"));
    };
    EXPECT_THROW(use(), ka::Error);
    EXPECT_NE(pid, 0);
    EXPECT_EQ(kill(pid, 0), -1);
}

TEST(CppHost, failed_start_leaves_nothing)
{
    start_library_thread();
    const int before = open_descriptors();
    EXPECT_THROW(ka::Host("/no/such/module"), ka::Error);
    EXPECT_THROW(ka::Host{no_loader_module}, ka::Error);
    EXPECT_EQ(open_descriptors(), before);
}

TEST(CppHost, moves_with_its_process_and_its_callback)
{
    ka::Host first(tasks_module);
    first.on_callback([](std::int32_t value) { return value + 1; });
    const std::int32_t pid = first.pid();
    ka::Host second = std::move(first);
    EXPECT_EQ(second.pid(), pid);
    EXPECT_EQ(second.call("ask", 6), 7);
}

TEST(CppHost, move_assignment_ends_the_one_before)
{
    ka::Host host(tasks_module);
    const pid_t earlier = host.pid();
    host = ka::Host(tasks_module);
    EXPECT_EQ(kill(earlier, 0), -1);
    EXPECT_EQ(host.call("give_code", 5), 5);
    std::vector<ka::Host> several;
    several.push_back(std::move(host));
    several.emplace_back(tasks_module);
    EXPECT_EQ(several[0].call("give_code", 6), 6);
    EXPECT_EQ(several[1].call("give_code", 7), 7);
}

TEST(CppHost, options_are_a_struct_with_the_defaults)
{
    ka::Options options;
    EXPECT_EQ(options.size, sizeof(ka_options));
    EXPECT_EQ(options.deadline_ms, default_options().deadline_ms);
    options.scratch_bytes = 4096;
    ka::Host host(tasks_module, options);
    EXPECT_EQ(host.scratch().size, 4096);
    EXPECT_EQ(host.call("scratch_room", 100), 1);
    EXPECT_EQ(static_cast<char *>(host.scratch().data)[99], 's');
    options.scratch_bytes = 0;
    EXPECT_EQ(ka::Host(tasks_module, options).scratch().data, nullptr);
}

TEST(CppHost, restarts_on_demand)
{
    ka::Host host(tasks_module);
    EXPECT_EQ(host.call("count_call"), 1);
    EXPECT_EQ(host.call("count_call"), 2);
    const pid_t earlier = host.pid();
    host.restart();
    EXPECT_NE(host.pid(), earlier);
    EXPECT_EQ(host.call("count_call"), 1);
}

TEST(CppHost, deadline_is_set_between_calls)
{
    ka::Host host(tasks_module);
    EXPECT_EQ(host.call("count_call"), 1);
    host.set_deadline(50);
    EXPECT_EQ(host.try_call("hang").error_class, KA_DEADLINE);
    EXPECT_THROW(host.set_deadline(0), ka::Error);
}

TEST(CppHost, keeps_the_end_of_standard_error)
{
    ka::Options options;
    options.error_output = KA_STDERR_RING;
    options.trace_level = 1;
    ka::Host host(tasks_module, options);
    EXPECT_EQ(host.call("give_code", 3), 3);
    EXPECT_EQ(host.error_output(), "\ncalling give_code, argc = 1\nreturn code is 3\n");
    EXPECT_EQ(host.error_output(8), "de is 3\n");
    EXPECT_EQ(host.error_output(0), "");
    host.set_trace(0);
    host.call("give_code", 4);
    EXPECT_EQ(host.error_output(8), "de is 3\n");
}

TEST(CppHost, raw_descriptors_can_be_set)
{
    ka::Options options;
    options.checking = KA_RAW;
    ka::Host host(tasks_module, options);
    host.begin("give_code");
    host.add(5);
    ka_descriptor descriptor = host.descriptor(1);
    EXPECT_EQ(descriptor.type, DLL_INTEGER);
    descriptor.type = DLL_STRING;
    host.set_descriptor(1, descriptor);
    EXPECT_EQ(host.send(), KA_WRONG_TYPE);
    host.begin("give_code");
    host.add(5);
    host.set_argc(1);
    EXPECT_EQ(host.send(), KA_WRONG_COUNT);
    EXPECT_THROW(host.descriptor(9), ka::Error);
}

TEST(CppHost, trace_level_is_seen_from_outside)
{
    ka::Host host(tasks_module);
    host.call("give_code", 0);
    const std::int32_t level = 0;
    EXPECT_EQ(ka::trace_process(host.pid()), 0);
    host.set_trace(3);
    EXPECT_EQ(ka::trace_process(host.pid(), &level), 3);
    EXPECT_THROW(host.set_trace(-7), ka::Error);
    EXPECT_EQ(ka::trace_process(host.pid()), 0);
    EXPECT_THROW(ka::trace_process(getpid()), ka::Error);
}

TEST(CppHostDeathTest, ending_it_in_its_own_callback_ends_the_program)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto use = [] {
        std::optional<ka::Host> host(tasks_module);
        host->on_callback([&](std::int32_t) {
            host.reset();
            return 0;
        });
        host->call("ask", 1);
    };
    EXPECT_EXIT(use(), testing::KilledBySignal(SIGABRT), "");
}
