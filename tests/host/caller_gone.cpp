// SPDX-License-Identifier: MIT
//
// Callers that are gone when the host signals them, and numbers that no process has.
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>

#include "host/probe.h"
#include "host/probe_mailbox.h"

namespace {

using namespace harness;

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
