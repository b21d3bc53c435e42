// SPDX-License-Identifier: MIT
//
// Hooks, the end of a host in each of its states, and callers that are gone.
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>

#include "host/probe.h"
#include "host/probe_mailbox.h"

namespace {

using namespace harness;

constexpr const char *setup_line = "setup: handlers 0 0, attached 1\n";
constexpr const char *both_lines = "setup: handlers 0 0, attached 1\ncleanup: attached 0\n";

const Start with_hooks = {.module = "hooks"};

// A process that has run, ended and been waited for: its number is in use no more.
pid_t ended_process()
{
    const pid_t pid = fork();
    if (pid == 0) _exit(0);
    waitpid(pid, nullptr, 0);
    return pid;
}

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

TEST(End, the_pending_second_call_is_not_performed_after_the_end_in_the_first)
{
    Block block;
    Probe host(block, {}, with_hooks);
    host.ring();
    expect_good_end(block, host);
}

// ---- Callers that are gone
// ------------------------------------------------------------------------------------------

TEST(CallerGone, the_reply_fails_and_the_host_ends_well)
{
    for (const Layout layout : {Layout::native, Layout::layout_64}) {
        Block block(layout);
        Probe host(block, {}, with_hooks);
        block.set(Head::pid, ended_process());
        host.begin(PROBE_RETURN, 77);
        EXPECT_EQ(host.await_end(), exited(0));
        EXPECT_EQ(block.get(Head::retcode), 77); // stored before the doorbell
        EXPECT_EQ(host.errors(), both_lines);
    }
}

TEST(CallerGone, the_reply_that_fails_reaches_the_modules_own_action_of_sigterm)
{
    Block block;
    Probe host(block);
    const int64_t caller = block.get(Head::pid);
    host.ask(PROBE_HANDLE, SIGTERM);
    block.set(Head::pid, ended_process());
    host.begin(PROBE_RETURN, 5);
    host.await_idle();
    block.set(Head::pid, caller);
    host.enter();
    EXPECT_EQ(host.ask(PROBE_HANDLED), 1);
    EXPECT_EQ(host.leave(6), 6);
}

TEST(CallerGone, a_refused_call_ends_the_host_as_well)
{
    Block block;
    block.set(Head::pid, ended_process());
    HostProcess host(block, with_hooks);
    place(block, "unknown");
    host.ring();
    EXPECT_EQ(host.await_end(), exited(0));
    EXPECT_EQ(block.get(Head::retcode), 7);
    EXPECT_EQ(host.errors(), both_lines);
}

TEST(CallerGone, a_callback_ends_the_host)
{
    for (const Layout layout : {Layout::native, Layout::layout_64}) {
        Block block(layout);
        Probe host(block, {}, with_hooks);
        block.set(Head::pid, ended_process());
        block.set(Head::retcode, 4321);
        host.begin(PROBE_CALLBACK, 77);
        EXPECT_EQ(host.await_end(), exited(0));
        EXPECT_EQ(block.get(Head::cbval), 77); // stored before the doorbell
        EXPECT_EQ(block.get(Head::retcode), 4321);
        EXPECT_EQ(host.errors(), both_lines);
    }
}

TEST(CallerGone, a_callback_ends_the_host_as_soon_as_sigterm_is_let_in)
{
    Block block;
    Probe host(block, {}, with_hooks);
    block.set(Head::pid, ended_process());
    host.ask(PROBE_BLOCK, SIGTERM);
    host.begin(PROBE_CALLBACK, 77);
    EXPECT_EQ(host.await_end(), exited(0));
    EXPECT_EQ(host.errors(), both_lines);
}

TEST(CallerGone, a_callback_waits_for_an_answer_where_sigterm_is_ignored)
{
    Block block;
    Probe host(block);
    const int64_t caller = block.get(Head::pid);
    block.set(Head::pid, ended_process());
    host.ask(PROBE_IGNORE, SIGTERM);
    host.begin(PROBE_CALLBACK, 77);
    host.await_idle();
    host.answer(9);
    EXPECT_EQ(host.finish(), 9);
    block.set(Head::pid, caller);
    EXPECT_EQ(host.leave(1), 1);
}

// Somebody else, who does nothing.
class Bystander {
public:
    Bystander() : pid_(fork())
    {
        if (pid_ != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;)
            pause();
    }
    ~Bystander() { end(); }
    Bystander(const Bystander &) = delete;
    Bystander &operator=(const Bystander &) = delete;

    pid_t pid() const { return pid_; }
    void end()
    {
        if (ended_) return;
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        ended_ = true;
    }

private:
    pid_t pid_;
    bool ended_ = false;
};

TEST(CallerGone, a_caller_killed_in_a_call_lets_the_host_end_after_it)
{
    Block block;
    Bystander caller;
    block.set(Head::pid, caller.pid());
    Probe host(block, {}, with_hooks);
    caller.end();
    EXPECT_EQ(host.ask(PROBE_ARGC), 1); // the host does not notice before it replies
    host.begin(PROBE_RETURN, 0);
    EXPECT_EQ(host.await_end(), exited(0));
    EXPECT_EQ(host.errors(), both_lines);
}

// kill() would take such a number for a process group, or for every process there is.
class NoProcess : public testing::TestWithParam<int32_t> {
protected:
    Start filtered() const { return {.module = "hooks", .filter = killed_by_group_signals()}; }
};

TEST_P(NoProcess, counts_as_a_caller_that_is_gone_for_the_reply)
{
    Block block;
    Probe host(block, {}, filtered());
    block.set(Head::pid, GetParam());
    host.begin(PROBE_RETURN, 5);
    EXPECT_EQ(host.await_end(), exited(0));
    EXPECT_EQ(block.get(Head::retcode), 5);
    EXPECT_EQ(host.errors(), both_lines);
    EXPECT_FALSE(host.has_signalled());
}

TEST_P(NoProcess, counts_as_a_caller_that_is_gone_for_a_callback)
{
    Block block;
    Probe host(block, {}, filtered());
    block.set(Head::pid, GetParam());
    host.begin(PROBE_CALLBACK, 5);
    EXPECT_EQ(host.await_end(), exited(0));
    EXPECT_EQ(host.errors(), both_lines);
    EXPECT_FALSE(host.has_signalled());
}

TEST_P(NoProcess, would_be_found_out_if_it_were_signalled)
{
    Block block;
    Probe host(block, {}, filtered());
    host.begin(PROBE_KILL, GetParam());
    EXPECT_EQ(host.await_end(), killed(SIGSYS));
}

INSTANTIATE_TEST_SUITE_P(Pid, NoProcess, testing::Values(0, -1, -2, INT_MIN, INT_MIN + 1));

} // namespace
