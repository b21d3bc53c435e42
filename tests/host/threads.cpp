// SPDX-License-Identifier: MIT
//
// Modules with threads: whichever thread the kernel gives a signal to, calls and the end are the main thread's, and
// an answer is that thread's which waits for it.
#include <gtest/gtest.h>

#include "host/probe.h"
#include "host/probe_mailbox.h"

namespace {

using namespace harness;

constexpr const char *cleanup_line = "cleanup on the main thread\n";

// To the leak sanitizer a thread that begins as the host ends looks like a leak of its own.
Start with_threads(std::vector<std::string> settings = {})
{
    settings.emplace_back("LSAN_OPTIONS=detect_leaks=0");
    return {.module = "threads", .environment = settings};
}

// The thread has SIGTERM open, and SIGUSR2 blocked as the host has it.
Start from_setup(const std::vector<std::string> &more = {})
{
    Start how = with_threads({"THREADS_FROM=setup"});
    how.environment.insert(how.environment.end(), more.begin(), more.end());
    return how;
}

// The thread has every signal open.
Start from_constructor()
{
    Start how = with_threads({"THREADS_FROM=constructor"});
    how.blocked = {};
    return how;
}

pid_t second_thread(const HostProcess &host)
{
    const std::set<pid_t> others = other_threads(host.pid());
    return others.size() == 1 ? *others.begin() : -1;
}

void expect_end(HostProcess &host)
{
    EXPECT_EQ(host.await_end(), exited(0));
    EXPECT_EQ(host.errors(), cleanup_line);
}

TEST(HostThreads, of_setup_have_the_signals_of_the_start_blocked_and_no_others)
{
    Block block;
    HostProcess host(block, from_setup());
    host.await_idle();
    const std::set<int> expected = {SIGINT, SIGUSR1, SIGUSR2, SIGIO, SIGALRM};
    const auto blocked = [&] { return signals(second_thread(host), "SigBlk"); }; // all while the thread begins
    host.await([&] { return blocked() == expected; }, "the mask of the thread");
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(HostThreads, the_end_that_reaches_another_thread_comes_on_the_main_thread)
{
    for (const bool in_call : {false, true}) {
        Block block;
        Probe host(Probe::Idle{}, block, from_setup());
        host.await_idle();
        if (in_call) host.enter();
        host.ring_thread(second_thread(host), SIGTERM);
        expect_end(host);
    }
}

TEST(HostThreads, the_end_that_reaches_another_thread_in_a_callback)
{
    Block block;
    Probe host(block, {}, from_setup());
    host.begin(PROBE_CALLBACK, 1);
    host.await_signal();
    host.ring_thread(second_thread(host), SIGTERM);
    expect_end(host);
}

TEST(HostThreads, a_hundred_and_fifty_hosts_that_are_called_and_ended_at_once)
{
    for (int round = 0; round < 150; round++) {
        Block block;
        HostProcess host(block, from_setup());
        host.await_idle();
        place(block, "unknown");
        host.ring();
        host.ring(SIGTERM);
        ASSERT_EQ(host.await_end(), exited(0)) << "round " << round << ": " << host.errors();
        ASSERT_EQ(host.errors(), cleanup_line) << "round " << round;
    }
}

TEST(HostThreads, a_second_end_signal_does_not_run_cleanup_again)
{
    Block block;
    HostProcess host(block, from_setup({"THREADS_AWAIT_END=1"}));
    host.await_idle();
    host.ring(SIGTERM);
    host.await([&] { return host.errors() == cleanup_line; }, "the cleanup hook");
    host.ring(SIGTERM); // reaches the other thread, since the main one has it blocked
    expect_end(host);
}

TEST(HostThreads, a_call_that_reaches_another_thread_is_performed_on_the_main_thread)
{
    Block block;
    Probe host(Probe::Idle{}, block, from_constructor());
    host.await_idle();
    place(block, "serve");
    host.ring_thread(second_thread(host), SIGUSR2);
    host.ask(PROBE_BASE);
    EXPECT_TRUE(host.signals("SigBlk").contains(SIGUSR2)); // of the main thread
    EXPECT_EQ(host.leave(4), 4);
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(HostThreads, an_answer_that_reaches_another_thread_is_taken_by_the_one_that_waits)
{
    Block block;
    Probe host(Probe::Idle{}, block, from_constructor());
    host.await_idle();
    host.enter();
    const pid_t other = second_thread(host);
    for (const int command : {PROBE_CALLBACK, PROBE_CALLBACK_IN_THREAD, PROBE_CALLBACK}) {
        host.begin(command, 1);
        host.await_signal();
        block.set(Head::retcode, 40 + command);
        host.ring_thread(other, SIGUSR2);
        EXPECT_EQ(host.finish(), 40 + command);
    }
    EXPECT_EQ(host.leave(4), 4);
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(HostThreads, a_thousand_callbacks_beside_a_thread_that_has_the_call_signal_open)
{
    Block block;
    Probe host(Probe::Idle{}, block, from_constructor());
    host.await_idle();
    for (int call = 0; call < 10; call++) {
        host.enter();
        for (int32_t i = 0; i < 100; i++)
            ASSERT_EQ(host.callback(i, 3 * i), 3 * i);
        ASSERT_EQ(host.leave(call), call);
    }
    EXPECT_EQ(host.terminate(), exited(0));
    EXPECT_EQ(host.errors(), cleanup_line);
}

TEST(HostThreads, a_callback_of_a_thread_that_ends_afterwards)
{
    Block block;
    Probe host(block, {}, with_threads());
    for (int32_t i = 0; i < 100; i++) {
        host.begin(PROBE_CALLBACK_IN_THREAD, i);
        host.await_signal();
        ASSERT_EQ(block.get(Head::cbval), i);
        host.answer(3 * i);
        ASSERT_EQ(host.finish(), 3 * i);
        ASSERT_EQ(host.callback(i, 5 * i), 5 * i); // and one of the main thread
    }
    EXPECT_EQ(host.leave(4), 4);
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(HostThreads, the_end_while_another_thread_waits_for_an_answer)
{
    Block block;
    Probe host(block, {}, with_threads({"THREADS_AWAIT_END=1"}));
    host.begin(PROBE_CALLBACK_IN_THREAD, 1);
    host.await_signal();
    const pid_t waiting = second_thread(host);
    host.ring_thread(waiting, SIGTERM);
    host.await([&] { return host.errors() == cleanup_line; }, "the cleanup hook");
    host.answer(7); // the block that it would be read from is gone
    host.await([&] { return host.signals("ShdPnd").empty(); }, "the answer taken");
    host.ring_thread(waiting, SIGTERM);
    expect_end(host);
}

TEST(HostThreads, the_end_of_a_process_that_another_thread_has_forked)
{
    Block block;
    Probe host(block, {}, with_threads());
    EXPECT_EQ(host.ask(PROBE_FORK_IN_THREAD, SIGTERM), 0);
    EXPECT_EQ(host.errors(), cleanup_line); // its only thread
    EXPECT_EQ(host.leave(4), 4);
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(HostThreads, a_caller_that_is_gone_ends_the_host_from_any_thread)
{
    Block block;
    Probe host(block, {}, with_threads());
    block.set(Head::pid, 0);
    host.begin(PROBE_CALLBACK_IN_THREAD, 1);
    expect_end(host);
}

} // namespace
