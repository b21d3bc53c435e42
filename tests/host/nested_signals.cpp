// SPDX-License-Identifier: MIT
//
// Calls and answers that arrive on top of another handler: the host's own one of SIGTERM, and the module's.
#include <gtest/gtest.h>

#include "host/probe.h"
#include "host/probe_mailbox.h"
#include "host/signal_sets.h"

namespace {

using namespace harness;
// Both arrive at once, the second on top of the handler of the first.
void ring_on_top(HostProcess &host, int first)
{
    host.stop();
    host.ring_thread(host.pid(), first);
    host.ring();
    host.resume();
}

void begin_callback(Probe &host)
{
    host.begin(PROBE_CALLBACK, 1);
    host.await_signal();
    host.await_idle();
}

// A handler of the module's that has SIGTERM in its mask.
void handle_without_sigterm(Probe &host, int signal)
{
    host.ask(PROBE_MASK, SIGTERM);
    host.ask(PROBE_HANDLE, signal);
}

// A time for a race, different from round to round, of up to 32 microseconds.
void dawdle(int round)
{
    using Clock = std::chrono::steady_clock;
    const auto until = Clock::now() + std::chrono::nanoseconds(round % 64 * 500);
    while (Clock::now() < until) {
    }
}

class EndFirst : public testing::TestWithParam<Layout> {};
INSTANTIATE_TEST_SUITE_P(Layouts, EndFirst, testing::Values(Layout::native, Layout::layout_64));

TEST_P(EndFirst, a_call_on_top_of_the_end_is_not_performed)
{
    Block block(GetParam());
    HostProcess host(block, "hooks");
    host.await_idle();
    block.set(Head::retcode, 123456);
    place(block, "unknown");
    ring_on_top(host, SIGTERM);
    EXPECT_EQ(host.await_end(), exited(0));
    EXPECT_EQ(block.get(Head::retcode), 123456);
    EXPECT_FALSE(host.has_signalled());
}

TEST_P(EndFirst, an_answer_on_top_of_the_end_does_not_undo_it)
{
    Block block(GetParam());
    Probe host(block);
    begin_callback(host);
    ring_on_top(host, SIGTERM);
    EXPECT_EQ(host.await_end(), exited(0));
    EXPECT_FALSE(host.has_signalled());
}

#ifdef __SANITIZE_ADDRESS__
constexpr int hosts = 100; // they start slowly
#else
constexpr int hosts = 1000; // and as many in the program of the other word size
#endif

TEST(EndFirst, calls_close_behind_the_end)
{
    Block block;
    place(block, "noop");
    for (int round = 0; round < hosts; round++) {
        block.set(Head::retcode, 123456);
        HostProcess host(block, "noop");
        host.await_idle();
        host.ring(SIGTERM);
        dawdle(round);
        host.ring();
        ASSERT_EQ(host.await_end(), exited(0)) << "round " << round;
        ASSERT_EQ(block.get(Head::retcode), 123456) << "round " << round;
        ASSERT_FALSE(host.has_signalled()) << "round " << round;
    }
}

class InsideHandler : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Of, InsideHandler, testing::Values(SIGHUP, SIGTERM),
                         [](const auto &signal) { return signal.param == SIGHUP ? "another_signal" : "sigterm"; });

TEST_P(InsideHandler, an_answer_is_taken_when_the_handler_has_returned)
{
    Block block;
    Probe host(block);
    handle_without_sigterm(host, GetParam());
    for (int round = 1; round <= 3; round++) {
        begin_callback(host);
        block.set(Head::retcode, 70 + round);
        ring_on_top(host, GetParam());
        EXPECT_EQ(host.finish(), 70 + round);
        EXPECT_EQ(host.ask(PROBE_HANDLED), round);
        EXPECT_EQ(host.signals("SigBlk"), after_callback);
    }
    EXPECT_EQ(host.leave(5), 5);
    EXPECT_FALSE(host.has_signalled());
}

TEST_P(InsideHandler, two_thousand_answers_close_behind_a_signal)
{
    Block block;
    Probe host(block);
    handle_without_sigterm(host, GetParam());
    for (int round = 0; round < 2000; round++) {
        begin_callback(host);
        block.set(Head::retcode, round);
        host.ring(GetParam());
        dawdle(round);
        host.ring();
        ASSERT_EQ(host.finish(), round);
    }
    EXPECT_EQ(host.leave(5), 5);
    EXPECT_FALSE(host.has_signalled());
}

TEST_P(InsideHandler, a_call_begins_when_the_handler_has_returned)
{
    Block block;
    Probe host(block);
    handle_without_sigterm(host, GetParam());
    host.leave();
    host.await_idle();
    place(block, "serve");
    ring_on_top(host, GetParam());
    EXPECT_EQ(host.ask(PROBE_HANDLED), 1);
    EXPECT_EQ(host.signals("SigBlk"), in_call);
    EXPECT_EQ(host.leave(6), 6);
    EXPECT_FALSE(host.has_signalled());
}

TEST(InsideHandler, a_call_can_still_be_ended)
{
    Block block;
    Probe host(block, {}, Start{.module = "hooks"});
    handle_without_sigterm(host, SIGHUP);
    host.leave();
    host.await_idle();
    place(block, "serve");
    ring_on_top(host, SIGHUP);
    EXPECT_EQ(host.ask(PROBE_ARGC), 1);
    EXPECT_EQ(host.terminate(), exited(0));
}

// A handler that lets SIGTERM in is left in the middle; what it blocks stays blocked until the call ends.
TEST(InsideHandler, an_answer_leaves_a_handler_that_lets_sigterm_in)
{
    Block block;
    Probe host(block);
    host.ask(PROBE_MASK, SIGWINCH);
    host.ask(PROBE_HANDLE, SIGHUP);
    begin_callback(host);
    block.set(Head::retcode, 9);
    ring_on_top(host, SIGHUP);
    EXPECT_EQ(host.finish(), 9);
    Set expected = after_callback;
    expected.insert({SIGHUP, SIGWINCH});
    EXPECT_EQ(host.signals("SigBlk"), expected);
    EXPECT_EQ(host.ask(PROBE_HANDLED), 0);
    EXPECT_EQ(host.leave(1), 1);
    host.enter();
    EXPECT_EQ(host.signals("SigBlk"), in_call);
    EXPECT_EQ(host.leave(2), 2);
}

// Nothing of a handler's mask is left once it has returned.
TEST(InsideHandler, an_answer_behind_a_handler_with_a_mask_finds_the_mask_of_the_wait)
{
    Block block;
    Probe host(block);
    host.ask(PROBE_MASK, SIGWINCH);
    host.ask(PROBE_HANDLE, SIGHUP);
    begin_callback(host);
    host.ring(SIGHUP);
    const auto handled = [&] { return block.load<int32_t>(mailbox_offset + offsetof(Mailbox, handled)); };
    host.await([&] { return handled() == 1 && host.signals("SigBlk") == in_callback; }, "the handler to return");
    host.answer(9);
    EXPECT_EQ(host.finish(), 9);
    EXPECT_EQ(host.signals("SigBlk"), after_callback);
    EXPECT_EQ(host.ask(PROBE_HANDLED), 1);
    EXPECT_EQ(host.leave(1), 1);
}

// ---- SIGTERM blocked by the module itself -----------------------------------------------------------------------

TEST(SigtermBlocked, in_setup_a_call_is_performed_and_can_be_ended)
{
    Block block;
    const std::string sigterm = std::to_string(SIGTERM);
    Probe host(block, {}, Start{.module = "hooks", .environment = {"HOOKS_BLOCK=" + sigterm}});
    EXPECT_EQ(host.signals("SigBlk"), in_call);
    EXPECT_EQ(host.callback(1, 2), 2);
    EXPECT_EQ(host.leave(3), 3);
    host.enter();
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(SigtermBlocked, in_setup_a_call_on_top_of_the_end_is_not_performed)
{
    Block block;
    HostProcess host(block, Start{.module = "hooks", .environment = {"HOOKS_BLOCK=" + std::to_string(SIGTERM)}});
    host.await_idle();
    block.set(Head::retcode, 123456);
    place(block, "unknown");
    ring_on_top(host, SIGTERM);
    EXPECT_EQ(host.await_end(), exited(0));
    EXPECT_EQ(block.get(Head::retcode), 123456);
}

TEST(SigtermBlocked, in_a_function_a_callback_is_answered_and_lets_sigterm_in)
{
    Block block;
    Probe host(block);
    host.ask(PROBE_BLOCK, SIGTERM);
    begin_callback(host);
    EXPECT_FALSE(host.signals("SigBlk").contains(SIGTERM));
    host.answer(8);
    EXPECT_EQ(host.finish(), 8);
    EXPECT_EQ(host.signals("SigBlk"), after_callback);
    host.ask(PROBE_BLOCK, SIGTERM);
    begin_callback(host);
    EXPECT_EQ(host.terminate(), exited(0));
}

} // namespace
