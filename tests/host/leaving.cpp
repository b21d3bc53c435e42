// SPDX-License-Identifier: MIT
//
// The end of the handler of a call: however it leaves the handler, the host brings back what was in force before the
// call, and nothing that the call has interrupted is lost.
#include <gtest/gtest.h>

#include "host/probe.h"
#include "host/probe_mailbox.h"
#include "host/signal_sets.h"
#include "module_bits.h"

namespace {

using namespace harness;
Set to_set(uint64_t mask)
{
    Set all;
    for (int signal = 1; signal <= 64; signal++) {
        if ((mask >> (signal - 1) & 1) != 0) all.insert(signal);
    }
    return all;
}

Set with(Set set, int signal)
{
    set.insert(signal);
    return set;
}

class Leaving : public testing::Test {
protected:
    Interrupted seen() { return block.load<Interrupted>(mailbox_offset + offsetof(Mailbox, interrupted)); }
    int handled() { return block.load<int32_t>(mailbox_offset + offsetof(Mailbox, handled)); }

    // What a SIGHUP finds of the wait for calls; the module looks at it from now on.
    Interrupted state_of_wait(Probe &host)
    {
        host.await_idle();
        const int before = seen().times;
        host.ring(SIGHUP);
        host.await([&] { return seen().times > before; }, "the signal handled");
        host.await_idle();
        return seen();
    }

    // A call that looks, and another one.
    void look_and_leave(Probe &host)
    {
        host.ask(PROBE_LOOK, SIGHUP);
        host.leave();
    }

    void call(Probe &host)
    {
        host.enter();
        host.leave();
    }

    // The call arrives on top of the handler of a SIGHUP.
    void ring_on_top(Probe &host)
    {
        host.await_idle();
        place(block, "serve");
        host.stop();
        host.ring_thread(host.pid(), SIGHUP);
        host.ring();
        host.resume();
        host.ask(PROBE_ARGC);
    }

    Block block;
};

TEST_F(Leaving, a_handler_that_a_call_has_interrupted_goes_on_after_it)
{
    Probe host(block);
    look_and_leave(host);
    for (int round = 0; round < 3; round++) {
        const int before = seen().times;
        ring_on_top(host);
        EXPECT_EQ(seen().times, before);
        host.leave();
        host.await([&] { return seen().times == before + 1; }, "the rest of the handler");
        EXPECT_EQ(to_set(seen().mask), in_call);
        EXPECT_EQ(to_set(seen().mask_at_end), with(while_idle, SIGHUP));
        host.await_idle();
        EXPECT_EQ(host.signals("SigBlk"), while_idle);
        call(host);
    }
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST_F(Leaving, a_handler_goes_on_after_a_call_with_a_callback)
{
    Probe host(block);
    look_and_leave(host);
    ring_on_top(host);
    EXPECT_EQ(host.callback(1, 2), 2);
    host.leave();
    host.await([&] { return seen().times == 1; }, "the rest of the handler");
    EXPECT_EQ(to_set(seen().mask_at_end), with(while_idle, SIGHUP));
    call(host);
    EXPECT_EQ(to_set(state_of_wait(host).mask), in_call);
}

TEST_F(Leaving, a_handler_without_its_own_signal_blocked_goes_on)
{
    Probe host(block);
    host.ask(PROBE_FLAGS, SA_NODEFER);
    look_and_leave(host);
    ring_on_top(host);
    host.ring(SIGHUP); // in the call: a whole second handler
    host.await([&] { return seen().times == 1; }, "the second handler");
    EXPECT_EQ(to_set(seen().mask), in_call);
    host.leave();
    host.await([&] { return seen().times == 2; }, "the rest of the first one");
    EXPECT_EQ(to_set(seen().mask_at_end), while_idle);
    call(host);
}

TEST_F(Leaving, a_handler_on_an_alternate_stack_goes_on)
{
    const Start how = {.module = "hooks", .environment = {"HOOKS_STACK=65536"}};
    Probe host(block, {}, how);
    host.ask(PROBE_FLAGS, SA_ONSTACK);
    look_and_leave(host);
    ring_on_top(host);
    host.leave();
    host.await([&] { return seen().times == 1; }, "the rest of the handler");
    EXPECT_EQ(seen().on_alternate_stack, 1);
    EXPECT_EQ(to_set(seen().mask_at_end), with(while_idle, SIGHUP));
    call(host);
    EXPECT_EQ(state_of_wait(host).on_alternate_stack, 1);
}

TEST_F(Leaving, the_mask_is_that_of_before_the_call)
{
    Probe host(block);
    look_and_leave(host);
    EXPECT_EQ(to_set(state_of_wait(host).mask), in_call);
    host.enter();
    host.callback(1, 2);
    host.leave();
    EXPECT_EQ(to_set(state_of_wait(host).mask), in_call);
}

TEST_F(Leaving, an_inherited_mask_comes_back)
{
    const Set blocked = {SIGPIPE, SIGUSR2, 34, 64};
    Probe host(block, {}, Start{.module = "probe", .blocked = {blocked.begin(), blocked.end()}});
    look_and_leave(host);
    Set expected = in_call;
    expected.insert(blocked.begin(), blocked.end());
    for (int round = 0; round < 2; round++) {
        EXPECT_EQ(to_set(state_of_wait(host).mask), expected);
        host.enter();
        EXPECT_EQ(host.signals("SigBlk"), in_call);
        host.callback(1, 2);
        host.leave();
    }
}

TEST_F(Leaving, a_mask_of_setup_comes_back)
{
    Probe host(block, {}, Start{.module = "hooks", .environment = {"HOOKS_BLOCK=" + std::to_string(SIGWINCH)}});
    look_and_leave(host);
    for (int round = 0; round < 2; round++) {
        EXPECT_EQ(to_set(state_of_wait(host).mask), with(in_call, SIGWINCH));
        call(host);
    }
}

// A function that changes its mask does so for itself.
TEST_F(Leaving, a_mask_that_a_function_leaves_does_not_reach_another_call)
{
    Probe host(block);
    look_and_leave(host);
    for (const int signal : {SIGTERM, SIGWINCH, 64}) {
        host.enter();
        host.ask(PROBE_BLOCK, signal);
        host.ask(PROBE_UNBLOCK, SIGUSR1);
        host.leave();
        host.await_idle();
        EXPECT_EQ(host.signals("SigBlk"), while_idle);
        host.enter();
        EXPECT_EQ(host.signals("SigBlk"), in_call);
        host.leave();
        EXPECT_EQ(to_set(state_of_wait(host).mask), in_call);
    }
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST_F(Leaving, a_function_that_lets_calls_in_is_finished_after_the_call_on_top_of_it)
{
    Probe host(block);
    host.callback(1, 1);
    place(block, "unknown");
    host.ask(PROBE_UNBLOCK, SIGUSR2);
    host.ring(); // a call of an unknown function, on top
    host.await_signal();
    EXPECT_EQ(block.get(Head::retcode), 7);
    EXPECT_EQ(host.leave(5), 5);
    // Until then the function has calls let in, as the wait does.
    host.await([&] { return host.signals("SigBlk") == while_idle; }, "the wait for calls");
    host.enter();
    EXPECT_EQ(host.signals("SigBlk"), in_call);
    host.leave();
}

TEST_F(Leaving, the_arithmetic_of_setup_comes_back)
{
    // 0b7f: rounding up; 035f: traps of inexact results
    for (const char *word : {"037f", "0b7f", "035f"}) {
        const uint32_t expected = static_cast<uint32_t>(std::stoul(word, nullptr, 16));
        const Start how = {.module = "hooks", .environment = {std::string("HOOKS_X87=") + word}};
        Probe host(block, {}, how);
        look_and_leave(host);
        for (const int x87 : {0x037f, 0x007f, 0x0f7f}) {
            const Interrupted now = state_of_wait(host);
            EXPECT_EQ(now.x87 & 0xff3f, expected & 0xff3f) << word;
            EXPECT_EQ(now.sse, 0x1f80u) << word;
            host.enter();
            host.ask(PROBE_ROUNDING, x87);
            host.leave();
        }
        EXPECT_EQ(host.terminate(), exited(0));
    }
}

// The two word sizes differ, as the kernel's frames do: a return arms it again only in a 64-bit process.
TEST_F(Leaving, an_alternate_stack_that_handlers_disarm_is_what_a_return_makes_of_it)
{
    Probe host(block, {}, Start{.module = "hooks", .environment = {"HOOKS_STACK=-65536"}});
    EXPECT_EQ(host.ask(PROBE_STACK_NOW), 0); // by the handler of the call
    look_and_leave(host);
    for (int round = 0; round < 2; round++) {
        EXPECT_EQ(state_of_wait(host).alternate_stack, module_bits() == 64 ? 65536 : 0);
        call(host);
    }
}

// As above.
TEST_F(Leaving, an_alternate_stack_of_a_function_is_what_a_return_makes_of_it)
{
    Probe host(block);
    host.ask(PROBE_SET_STACK, 65536);
    EXPECT_EQ(host.ask(PROBE_STACK_NOW), 65536);
    host.leave();
    host.enter();
    EXPECT_EQ(host.ask(PROBE_STACK_NOW), module_bits() == 64 ? 0 : 65536);
    host.leave();
}

TEST_F(Leaving, a_handler_of_the_module_around_the_hosts_own_is_finished)
{
    Probe host(block);
    host.ask(PROBE_WRAP);
    host.leave();
    for (int round = 1; round <= 3; round++) {
        const int before = handled();
        host.enter();
        host.leave();
        host.await([&] { return handled() == before + 2; }, "the rest of the module's handler");
        host.await_idle();
    }
    EXPECT_EQ(host.terminate(), exited(0));
}

} // namespace
