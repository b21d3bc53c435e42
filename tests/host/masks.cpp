// SPDX-License-Identifier: MIT
//
// Which signals a host lets in: between calls, in a call, in a call-back, and afterwards.
#include <gtest/gtest.h>

#include "host/probe.h"
#include "host/probe_mailbox.h"
#include "host/signal_sets.h"

namespace {

using namespace harness;
// Answers a call-back whose mask it has looked at.
Set mask_in_callback(Probe &host)
{
    host.begin(PROBE_CALLBACK, 1);
    host.await_signal();
    host.await_idle();
    const Set mask = host.signals("SigBlk");
    host.answer(0);
    host.finish();
    return mask;
}

TEST(Masks, in_each_state_of_a_call)
{
    Block block;
    Probe host(Probe::Idle{}, block);
    host.await_idle();
    EXPECT_EQ(host.signals("SigBlk"), while_idle);
    for (int round = 0; round < 2; round++) {
        host.enter();
        EXPECT_EQ(host.signals("SigBlk"), in_call);
        EXPECT_EQ(mask_in_callback(host), in_callback);
        EXPECT_EQ(host.signals("SigBlk"), after_callback);
        EXPECT_EQ(mask_in_callback(host), in_callback);
        EXPECT_EQ(host.signals("SigBlk"), after_callback);
        host.leave();
        host.await_idle();
        EXPECT_EQ(host.signals("SigBlk"), while_idle);
    }
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(Masks, inherited_blocked_signals_are_let_in_by_every_wait)
{
    Block block;
    const std::vector<int> blocked = {SIGHUP, SIGPIPE, SIGUSR1, SIGUSR2, SIGTERM, SIGWINCH, 33, 34, 64};
    Probe host(Probe::Idle{}, block, Start{.module = "probe", .blocked = blocked});
    host.await_idle();
    EXPECT_EQ(host.signals("SigBlk"), while_idle);
    host.enter();
    EXPECT_EQ(host.signals("SigBlk"), in_call);
    EXPECT_EQ(mask_in_callback(host), in_callback);
    EXPECT_EQ(host.signals("SigBlk"), after_callback);
    host.leave();
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(Masks, a_pending_inherited_blocked_signal_strikes_when_the_host_first_waits)
{
    Block block;
    HostProcess host(block, Start{.module = "hooks", .blocked = {SIGHUP, SIGUSR2}});
    host.ring(SIGHUP);
    EXPECT_EQ(host.await_end(), killed(SIGHUP));
    EXPECT_EQ(host.errors(), "setup: handlers 0 0, attached 1\n");
}

TEST(Masks, an_end_signal_inherited_as_blocked_ends_the_host_when_it_first_waits)
{
    Block block;
    HostProcess host(block, Start{.module = "hooks", .blocked = {SIGTERM, SIGUSR2}});
    host.ring(SIGTERM);
    EXPECT_EQ(host.await_end(), exited(0));
    EXPECT_EQ(host.errors(), "setup: handlers 0 0, attached 1\ncleanup: attached 0\n");
}

TEST(Masks, four_signals_stay_pending_between_calls_and_in_them)
{
    Block block;
    Probe host(Probe::Idle{}, block);
    host.await_idle();
    for (const int signal : while_idle)
        host.ring(signal);
    host.enter();
    EXPECT_EQ(host.leave(3), 3);
    host.await_idle();
    EXPECT_EQ(host.signals("ShdPnd"), while_idle);
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(Masks, three_signals_stay_pending_in_a_callback)
{
    Block block;
    Probe host(block);
    host.begin(PROBE_CALLBACK, 1);
    host.await_signal();
    host.await_idle();
    for (const int signal : in_callback)
        host.ring(signal);
    host.answer(8);
    EXPECT_EQ(host.finish(), 8);
    EXPECT_EQ(host.signals("ShdPnd"), in_callback);
    host.leave();
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(Masks, sigusr1_is_let_in_by_a_callback)
{
    Block block;
    Probe host(block);
    host.ring(SIGUSR1);
    EXPECT_EQ(host.ask(PROBE_ARGC), 1);
    EXPECT_EQ(host.signals("ShdPnd"), Set{SIGUSR1});
    host.begin(PROBE_CALLBACK, 1);
    EXPECT_EQ(host.await_end(), killed(SIGUSR1));
}

TEST(Masks, calls_rung_before_the_host_is_ready_are_not_lost)
{
    for (int round = 0; round < 50; round++) {
        Block block;
        HostProcess host(block, "noop");
        place(block, "noop");
        ASSERT_EQ(host.call(), 11) << "round " << round;
    }
}

TEST(Masks, a_host_that_inherits_nothing_blocked_blocks_the_call_signal_itself)
{
    Block block;
    Probe host(Probe::Idle{}, block, Start{.module = "probe", .blocked = {}});
    host.await_idle();
    EXPECT_EQ(host.signals("SigBlk"), while_idle);
    host.enter();
    EXPECT_EQ(host.signals("SigBlk"), in_call);
    EXPECT_EQ(host.leave(), 0);
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(Masks, a_second_call_signal_waits_for_the_end_of_the_first_call)
{
    Block block;
    Probe host(block);
    host.ring();
    EXPECT_EQ(host.ask(PROBE_ARGC), 1);
    EXPECT_EQ(host.signals("ShdPnd"), Set{SIGUSR2});
    EXPECT_FALSE(host.has_signalled());
    EXPECT_EQ(host.leave(1), 1);
    EXPECT_EQ(host.ask(PROBE_ARGC), 1); // the second call
    EXPECT_FALSE(host.has_signalled());
    EXPECT_EQ(host.leave(2), 2);
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(Masks, a_handler_of_the_module_leaves_the_host_waiting)
{
    Block block;
    Probe host(block);
    host.ask(PROBE_HANDLE, SIGHUP);
    host.leave();
    host.await_idle();
    const auto handled = [&] { return block.load<int32_t>(mailbox_offset + offsetof(Mailbox, handled)); };
    for (int round = 1; round <= 3; round++) {
        host.ring(SIGHUP);
        host.await([&] { return handled() == round; }, "the signal handled");
        host.await_idle();
    }
    host.enter();
    EXPECT_EQ(host.ask(PROBE_HANDLED), 3);
    EXPECT_EQ(host.leave(6), 6);
    EXPECT_EQ(host.terminate(), exited(0));
}

} // namespace
