// SPDX-License-Identifier: MIT
//
// Hooks, a fork, and the end of a host in each of its states.
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>

#include "host/probe.h"
#include "host/probe_mailbox.h"

namespace {

using namespace harness;

constexpr const char *setup_line = "setup: handlers 0 0, attached 1\n";
constexpr const char *both_lines = "setup: handlers 0 0, attached 1\ncleanup: attached 0\n";

const Start with_hooks = {.module = "hooks"};

TEST(Hooks, setup_runs_once_before_any_handler_and_cleanup_once_after_the_block_is_gone)
{
    Block block;
    HostProcess host(block, with_hooks);
    host.await_idle();
    EXPECT_EQ(host.errors(), setup_line);
    place(block, "unknown");
    EXPECT_EQ(host.call(), 7);
    EXPECT_EQ(host.call(), 7);
    EXPECT_EQ(host.errors(), setup_line);
    EXPECT_EQ(host.terminate(), exited(0));
    EXPECT_EQ(host.errors(), both_lines);
}

TEST(Hooks, a_module_without_hooks_starts_and_ends_silently)
{
    Block block;
    HostProcess host(block, "noop");
    host.await_idle();
    EXPECT_EQ(host.terminate(), exited(0));
    EXPECT_EQ(host.errors(), "");
}

TEST(Hooks, what_a_module_left_for_its_exit_runs_after_cleanup)
{
    Block block;
    HostProcess host(block, "at_exit");
    host.await_idle();
    EXPECT_EQ(host.terminate(), exited(0));
    EXPECT_EQ(host.errors(), "cleanup\nat exit\n");
}

TEST(Fork, of_a_function_leaves_the_call_to_the_host)
{
    Block block;
    Probe host(block, {}, with_hooks);
    EXPECT_EQ(host.ask(PROBE_FORK, 17), 17);
    EXPECT_FALSE(host.has_signalled());
    EXPECT_EQ(host.callback(1, 2), 2);
    EXPECT_EQ(host.ask(PROBE_FORK, 18), 18);
    EXPECT_EQ(host.leave(3), 3);
    host.enter();
    EXPECT_EQ(host.leave(4), 4);
    EXPECT_FALSE(host.has_signalled());
    EXPECT_EQ(host.terminate(), exited(0));
    EXPECT_EQ(host.errors(), both_lines);
}

// No frame of the host's catches it.
class ExceptionOutOf : public testing::TestWithParam<const char *> {};
INSTANTIATE_TEST_SUITE_P(Module, ExceptionOutOf, testing::Values("setup", "call", "cleanup"),
                         [](const auto &place) { return std::string(place.param); });

TEST_P(ExceptionOutOf, the_module_ends_the_host_by_an_abort)
{
    const std::string place_of_it = GetParam();
    Block block;
    HostProcess host(block, Start{.module = "throws", .environment = {"THROWS=" + place_of_it}});
    if (place_of_it != "setup") host.await_idle();
    place(block, "noop");
    block.set(Head::retcode, 77);
    if (place_of_it == "call") host.ring();
    if (place_of_it == "cleanup") host.ring(SIGTERM);
    EXPECT_EQ(host.await_end(), killed(SIGABRT));
    EXPECT_NE(host.errors().find("what():  out of " + place_of_it), std::string::npos) << host.errors();
    EXPECT_EQ(block.get(Head::retcode), 77);
    EXPECT_FALSE(host.has_signalled());
}

class Ending : public testing::TestWithParam<Layout> {};

// SIGTERM to a host in the state that it is in: it ends well, has written nothing more to the block, and is silent.
void expect_good_end(Block &block, HostProcess &host)
{
    block.set(Head::retcode, 123456);
    const std::string before = block.bytes();
    EXPECT_EQ(host.terminate(), exited(0));
    EXPECT_EQ(block.bytes(), before);
    EXPECT_EQ(host.errors(), both_lines);
    EXPECT_FALSE(host.has_signalled());
}

TEST_P(Ending, between_calls)
{
    Block block(GetParam());
    HostProcess host(block, with_hooks);
    host.await_idle();
    expect_good_end(block, host);
}

TEST_P(Ending, in_a_call)
{
    Block block(GetParam());
    Probe host(block, {integer(1).by_ref()}, with_hooks);
    expect_good_end(block, host);
}

TEST_P(Ending, in_a_callback)
{
    Block block(GetParam());
    Probe host(block, {integer(1).by_ref()}, with_hooks);
    host.begin(PROBE_CALLBACK, 5);
    host.await_signal();
    host.await_idle();
    expect_good_end(block, host);
}

TEST_P(Ending, in_a_call_after_a_callback)
{
    Block block(GetParam());
    Probe host(block, {}, with_hooks);
    EXPECT_EQ(host.callback(1, 2), 2);
    expect_good_end(block, host);
}

// The answer comes when the handler of SIGTERM has begun and not yet blocked anything.
TEST_P(Ending, is_not_undone_by_an_answer_that_comes_on_top_of_it)
{
    Block block(GetParam());
    Probe host(block, {integer(1).by_ref()}, with_hooks);
    host.begin(PROBE_CALLBACK, 5);
    host.await_signal();
    host.await_idle();
    const pid_t pid = host.pid();
    const auto stopped_by = [&] {
        int status = 0;
        EXPECT_EQ(waitpid(pid, &status, 0), pid);
        return WIFSTOPPED(status) ? WSTOPSIG(status) : 0;
    };
    ASSERT_EQ(ptrace(PTRACE_SEIZE, pid, 0, 0), 0);
    host.ring(SIGTERM);
    ASSERT_EQ(stopped_by(), SIGTERM);
    ASSERT_EQ(ptrace(PTRACE_SINGLESTEP, pid, 0, SIGTERM), 0); // to the first instruction of the handler
    ASSERT_EQ(stopped_by(), SIGTRAP);
    host.ring(SIGUSR2);
    ASSERT_EQ(ptrace(PTRACE_CONT, pid, 0, 0), 0);
    ASSERT_EQ(stopped_by(), SIGUSR2);
    ASSERT_EQ(ptrace(PTRACE_DETACH, pid, 0, SIGUSR2), 0);
    EXPECT_EQ(host.await_end(), exited(0));
}

INSTANTIATE_TEST_SUITE_P(Layouts, Ending, testing::Values(Layout::native, Layout::layout_32, Layout::layout_64));

TEST(End, a_call_signal_that_comes_during_cleanup_is_not_served)
{
    Block block;
    HostProcess host(block, Start{.module = "hooks", .environment = {"HOOKS_AWAIT_CALL=1"}});
    host.await_idle();
    host.ring(SIGTERM);
    host.await([&] { return host.errors() == both_lines; }, "the cleanup hook");
    host.ring(SIGUSR2);
    EXPECT_EQ(host.await_end(), exited(0));
    EXPECT_EQ(host.errors(), both_lines);
    EXPECT_FALSE(host.has_signalled());
}

TEST(End, a_second_end_signal_during_cleanup_does_not_run_it_again)
{
    Block block;
    HostProcess host(block, Start{.module = "hooks", .environment = {"HOOKS_AWAIT_CALL=1"}});
    host.await_idle();
    host.ring(SIGTERM);
    host.await([&] { return host.errors() == both_lines; }, "the cleanup hook");
    host.ring(SIGTERM);
    host.ring(SIGUSR2);
    EXPECT_EQ(host.await_end(), exited(0));
    EXPECT_EQ(host.errors(), both_lines);
}

TEST(End, a_second_end_signal_that_cleanup_lets_in_does_not_run_it_again)
{
    Block block;
    HostProcess host(block, Start{.module = "hooks", .environment = {"HOOKS_END_AGAIN=1"}});
    host.await_idle();
    EXPECT_EQ(host.terminate(), exited(0));
    EXPECT_EQ(host.errors(), both_lines);
}

TEST(End, the_pending_second_call_is_not_performed_after_the_end_in_the_first)
{
    Block block;
    Probe host(block, {}, with_hooks);
    host.ring();
    expect_good_end(block, host);
}

} // namespace
