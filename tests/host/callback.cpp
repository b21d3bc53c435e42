// SPDX-License-Identifier: MIT
//
// Call-backs: the value on its way out, the answer on its way in, and the state after the wait.
#include <gtest/gtest.h>

#include <climits>

#include "host/probe.h"
#include "host/probe_mailbox.h"

namespace {

using namespace harness;

enum { own_action = 1, host_action = 2 }; // what PROBE_ACTION_NOW reports

class CallbackIn : public testing::TestWithParam<Layout> {
protected:
    Block block{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(Layouts, CallbackIn, testing::Values(Layout::native, Layout::layout_32, Layout::layout_64));

TEST_P(CallbackIn, the_value_goes_to_cbval_and_the_answer_comes_from_retcode)
{
    Probe host(block);
    const std::pair<int32_t, int32_t> exchanges[] = {
        {7, 70}, {-1, -70}, {0, 0}, {INT_MIN, INT_MAX}, {INT_MAX, INT_MIN}};
    for (const auto &[value, reply] : exchanges) {
        EXPECT_EQ(host.callback(value, reply), reply);
        EXPECT_EQ(block.get(Head::cbval), value);
    }
    EXPECT_EQ(host.leave(5), 5);
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST_P(CallbackIn, only_cbval_is_written_before_the_caller_is_signalled)
{
    Probe host(block);
    block.set(Head::retcode, 1234);
    const std::string before = block.bytes();
    host.begin(PROBE_CALLBACK, -1);
    host.await_signal();
    const std::string now = block.bytes();
    const int at = GetParam() == Layout::layout_64 ? 40 : 32;
    for (int i = 0; i < mailbox_offset; i++) {
        const bool cbval = i >= at && i < at + 4;
        EXPECT_EQ(now[static_cast<size_t>(i)] != before[static_cast<size_t>(i)], cbval) << "byte " << i;
    }
    host.answer(1);
    host.finish();
    host.leave();
}

TEST(Callback, many_in_one_call_keep_their_order)
{
    Block block;
    Probe host(block);
    for (int32_t i = 0; i < 1000; i++) {
        ASSERT_EQ(host.callback(i, 3 * i), 3 * i);
        ASSERT_EQ(block.get(Head::cbval), i);
    }
    EXPECT_EQ(host.leave(9), 9);
    EXPECT_FALSE(host.has_signalled());
}

TEST(Callback, calls_with_and_without_callbacks_follow_each_other)
{
    Block block;
    Probe host(block);
    EXPECT_EQ(host.callback(1, 10), 10);
    EXPECT_EQ(host.leave(1), 1);
    host.enter();
    EXPECT_EQ(host.leave(2), 2);
    host.enter();
    EXPECT_EQ(host.callback(2, 20), 20);
    EXPECT_EQ(host.leave(3), 3);
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(Callback, an_answer_that_comes_before_the_wait_is_not_lost)
{
    Block block;
    Probe host(block);
    host.answer(55);
    host.await([&] { return host.signals("ShdPnd").contains(SIGUSR2); }, "the early answer");
    EXPECT_EQ(host.ask(PROBE_CALLBACK, 3), 55);
    EXPECT_TRUE(host.has_signalled());
    EXPECT_EQ(host.leave(1), 1);
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(Callback, the_answer_is_read_when_the_wait_is_over)
{
    Block block;
    Probe host(block);
    host.begin(PROBE_CALLBACK, 3);
    host.await_signal();
    block.set(Head::retcode, 1);
    host.await_idle();
    host.answer(2);
    EXPECT_EQ(host.finish(), 2);
    host.leave();
}

TEST(Callback, the_call_handler_is_back_in_place_afterwards)
{
    Block block;
    Probe host(block);
    EXPECT_EQ(host.ask(PROBE_ACTION_NOW), host_action);
    host.callback(1, 1);
    EXPECT_EQ(host.ask(PROBE_ACTION_NOW), host_action);
    host.leave();
    host.enter(); // the handler performs calls
    EXPECT_EQ(host.leave(4), 4);
}

TEST(Callback, an_action_of_the_function_itself_is_restored_whole)
{
    Block block;
    Probe host(block);
    host.ask(PROBE_OWN_ACTION, 1);
    EXPECT_EQ(host.ask(PROBE_ACTION_NOW), own_action);
    EXPECT_EQ(host.callback(1, 6), 6);
    EXPECT_EQ(host.ask(PROBE_ACTION_NOW), own_action);
    EXPECT_EQ(host.callback(2, 7), 7);
    EXPECT_EQ(host.ask(PROBE_ACTION_NOW), own_action);
    host.ask(PROBE_OWN_ACTION, 0);
    EXPECT_EQ(host.ask(PROBE_ACTION_NOW), host_action);
    EXPECT_EQ(host.leave(4), 4);
}

TEST(Callback, an_ignored_call_signal_is_ignored_again_afterwards)
{
    Block block;
    Probe host(block);
    host.ask(PROBE_IGNORE, SIGUSR2);
    EXPECT_EQ(host.callback(1, 6), 6);
    EXPECT_EQ(host.signals("SigIgn"), std::set<int>{SIGUSR2});
    host.leave();
}

// Let in by the call-back, and still let in after it: there the signal ends the host at once.
TEST(Callback, leaves_sigusr1_unblocked)
{
    Block block;
    Probe host(block);
    host.callback(1, 1);
    EXPECT_FALSE(host.signals("SigBlk").contains(SIGUSR1));
    host.ring(SIGUSR1);
    EXPECT_EQ(host.await_end(), killed(SIGUSR1));
}

TEST(Callback, sigusr1_is_blocked_again_when_the_call_has_ended)
{
    Block block;
    Probe host(block);
    host.callback(1, 1);
    host.leave();
    host.await_idle();
    host.ring(SIGUSR1);
    host.enter();
    EXPECT_EQ(host.leave(2), 2);
    EXPECT_EQ(host.signals("ShdPnd"), std::set<int>{SIGUSR1});
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(Callback, other_signals_are_handled_and_the_wait_goes_on)
{
    Block block;
    Probe host(block);
    host.ask(PROBE_HANDLE, SIGUSR1);
    host.begin(PROBE_CALLBACK, 1);
    host.await_signal();
    // Counted, not only begun: an answer leaves whatever handler it meets.
    const auto handled = [&] { return block.load<int32_t>(mailbox_offset + offsetof(Mailbox, handled)); };
    for (int round = 1; round <= 3; round++) {
        host.await_idle();
        host.ring(SIGUSR1);
        host.await([&] { return handled() == round; }, "the signal handled");
    }
    host.answer(17);
    EXPECT_EQ(host.finish(), 17);
    EXPECT_EQ(host.ask(PROBE_HANDLED), 3);
    EXPECT_EQ(host.leave(2), 2);
}

TEST(Callback, works_in_setup_and_the_host_starts_afterwards)
{
    Block block;
    HostProcess host(block, Start{.module = "hooks", .environment = {"HOOKS_CALLBACK=5"}});
    host.await_signal();
    EXPECT_EQ(block.get(Head::cbval), 5);
    host.answer(50);
    host.await([&] { return host.errors().ends_with("answer: 50\n"); }, "the answer");
    host.await_idle();
    EXPECT_EQ(host.signals("SigBlk"), (std::set<int>{SIGINT, SIGUSR1, SIGIO, SIGALRM}));
    place(block, "unknown");
    EXPECT_EQ(host.call(), 7);
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(Callback, the_caller_is_the_one_that_the_block_names_at_that_moment)
{
    Block block;
    Probe host(block);
    const int64_t caller = block.get(Head::pid);
    block.set(Head::pid, host.pid()); // the host answers itself
    block.set(Head::retcode, 31);
    EXPECT_EQ(host.ask(PROBE_CALLBACK, 1), 31);
    block.set(Head::pid, caller);
    EXPECT_FALSE(host.has_signalled());
    EXPECT_EQ(host.leave(2), 2);
}

} // namespace
