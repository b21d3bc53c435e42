// SPDX-License-Identifier: MIT
//
// Calls that come without a signal: a function finds all as in the handler of one, nothing is lost and nothing
// performed twice, and the host comes back to the wait in which signals wake it.
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>

#include "host/quiet_caller.h"
#include "host/signal_sets.h"
#include "ka/dll_codes.h"
#include "module_bits.h"

namespace {

using namespace harness;
class Quiet : public testing::Test {
protected:
    uint32_t word(const uint32_t &of_annex) { return QuietBlock::word(of_annex); }
    std::vector<int32_t> arithmetic(QuietProbe &host)
    {
        const int32_t control = host.ask(PROBE_ARITHMETIC);
        return {control, host.out(1), host.out(2)};
    }
    QuietBlock block;
};

// Holds a host between two instructions, at the moment that it has said that it waits for a signal.
class HeldWhenItSaysSo {
public:
    HeldWhenItSaysSo(QuietBlock &block, QuietProbe &host) : pid_(host.pid())
    {
        EXPECT_EQ(ptrace(PTRACE_SEIZE, pid_, nullptr, nullptr), 0);
        EXPECT_EQ(ptrace(PTRACE_INTERRUPT, pid_, nullptr, nullptr), 0);
        host.begin(PROBE_RETURN);
        for (await_stop(); !HasFailure() && !says_so(block); await_stop())
            EXPECT_EQ(ptrace(PTRACE_SINGLESTEP, pid_, nullptr, nullptr), 0);
    }
    ~HeldWhenItSaysSo() { EXPECT_EQ(ptrace(PTRACE_DETACH, pid_, nullptr, nullptr), 0); }
    HeldWhenItSaysSo(const HeldWhenItSaysSo &) = delete;
    HeldWhenItSaysSo &operator=(const HeldWhenItSaysSo &) = delete;

private:
    static bool HasFailure() { return testing::Test::HasFailure(); }
    static bool says_so(QuietBlock &block)
    {
        return QuietBlock::word(block.annex().waits) == wire::HOST_IN_SIGSUSPEND;
    }
    void await_stop() const
    {
        int status = 0;
        EXPECT_EQ(waitpid(pid_, &status, 0), pid_);
        EXPECT_TRUE(WIFSTOPPED(status));
    }
    pid_t pid_;
};

} // namespace

TEST_F(Quiet, a_host_waits_for_a_signal_until_a_request_says_that_the_next_may_come_without)
{
    block.annex().without_signal = 0;
    QuietProbe host(block);
    for (int round = 0; round < 3; round++) {
        EXPECT_FALSE(host.request());
        block.annex().waits = wire::HOST_IN_SIGSUSPEND; // the host of such a caller leaves it alone
        host.ask(PROBE_BASE);
        host.leave();
        host.await_idle();
        EXPECT_EQ(word(block.annex().waits), wire::HOST_IN_SIGSUSPEND);
    }
}

TEST_F(Quiet, calls_follow_each_other_without_a_signal)
{
    QuietProbe host(block);
    host.enter_by_signal();
    for (uint32_t number = 2; number <= 20; number++) {
        host.leave_and_enter_quietly();
        EXPECT_EQ(word(block.annex().started), number);
        EXPECT_EQ(word(block.annex().done), number - 1);
        EXPECT_EQ(word(block.annex().waits), wire::HOST_AWAKE);
    }
    host.leave(7);
    EXPECT_EQ(block.get(Head::retcode), 7);
    EXPECT_FALSE(host.has_signalled());
}

// And its sleep there costs nothing until then.
TEST_F(Quiet, without_a_request_the_host_waits_for_signals_again)
{
    QuietProbe host(block);
    for (int round = 0; round < 3; round++) {
        host.enter_by_signal();
        host.leave_and_enter_quietly();
        host.leave();
        host.await_suspended();
        EXPECT_EQ(host.signals("SigBlk"), while_idle);
    }
    EXPECT_EQ(host.terminate(), exited(0));
}

// Asked at any moment after a reply: what the host says then decides how it is woken.
TEST_F(Quiet, no_request_is_lost_whenever_it_comes)
{
    QuietProbe host(block);
    int without = 0;
    for (int round = 0; round < 300; round++) {
        without += host.request() ? 1 : 0;
        host.ask(PROBE_BASE);
        host.leave();
        usleep(static_cast<useconds_t>(round % 30 * 100)); // to 3 ms: across the end of the host's sleep
    }
    EXPECT_GT(without, 0);
    EXPECT_EQ(word(block.annex().started), 300u);
}

// ---- A request that comes when the host has just said that it waits for a signal ---------------------------------

// Either at the end of its sleep, or after a call on top of a handler of the module's, from which it comes back.
class QuietMoment : public Quiet, public testing::WithParamInterface<bool> {
protected:
    void SetUp() override
    {
        host.enter_by_signal();
        if (!GetParam()) return host.leave_and_enter_quietly();
        host.ask(PROBE_HANDLE, SIGHUP);
        host.leave();
        host.await_suspended();
        host.stop();
        host.ring_thread(host.pid(), SIGHUP);
        host.request();
        host.resume();
        host.ask(PROBE_BASE);
    }
    QuietProbe host{block};
};
INSTANTIATE_TEST_SUITE_P(After, QuietMoment, testing::Bool(),
                         [](const auto &on_top) { return on_top.param ? "a_call_on_top" : "the_sleep"; });

TEST_P(QuietMoment, the_host_takes_its_word_back_when_nobody_has_seen_it)
{
    {
        const HeldWhenItSaysSo held(block, host);
        block.number_request();
    }
    EXPECT_EQ(host.ask(PROBE_BASE), 0);
    EXPECT_EQ(word(block.annex().waits), wire::HOST_AWAKE);
    EXPECT_EQ(word(block.annex().started), 3u);
    host.leave();
    host.await_suspended();
    EXPECT_EQ(word(block.annex().started), 3u);
}

TEST_P(QuietMoment, the_host_waits_for_the_signal_of_a_caller_that_has_seen_its_word)
{
    {
        const HeldWhenItSaysSo held(block, host);
        block.number_request();
        EXPECT_EQ(std::exchange(block.annex().waits, uint32_t{wire::HOST_SIGNALLED}), wire::HOST_IN_SIGSUSPEND);
    }
    host.await_idle();
    EXPECT_EQ(word(block.annex().started), 2u);
    host.ring();
    EXPECT_EQ(host.ask(PROBE_BASE), 0);
    EXPECT_EQ(word(block.annex().started), 3u);
    host.leave();
    host.await_suspended();
    EXPECT_EQ(word(block.annex().started), 3u);
}

// ---- What a function finds ---------------------------------------------------------------------------------------

TEST_F(Quiet, the_mask_is_that_of_the_handler)
{
    QuietProbe host(block);
    host.enter_by_signal();
    EXPECT_EQ(host.signals("SigBlk"), in_call);
    host.leave_and_enter_quietly();
    EXPECT_EQ(host.signals("SigBlk"), in_call);
    host.leave();
}

TEST_F(Quiet, the_mask_is_that_of_the_handler_whatever_main_has_inherited_or_set_up)
{
    const auto with = [](int signal) {
        return Start{.module = "hooks",
                     .environment = {"HOOKS_BLOCK=" + std::to_string(signal)},
                     .blocked = {SIGPIPE, SIGWINCH}};
    };
    for (int signal : {SIGTERM, SIGHUP}) {
        QuietBlock fresh;
        QuietProbe host(fresh, with(signal));
        host.request();
        host.ask(PROBE_BASE);
        for (int round = 0; round < 3; round++) {
            EXPECT_EQ(host.signals("SigBlk"), in_call);
            host.leave_and_enter_quietly();
        }
        EXPECT_EQ(host.terminate(), exited(0));
    }
}

TEST_F(Quiet, a_mask_that_a_function_has_left_is_not_the_next_ones)
{
    QuietProbe host(block);
    host.enter_by_signal();
    for (int round = 0; round < 3; round++) {
        host.ask(PROBE_BLOCK, SIGWINCH);
        host.ask(PROBE_UNBLOCK, SIGIO);
        host.leave_and_enter_quietly();
        EXPECT_EQ(host.signals("SigBlk"), in_call);
    }
    host.leave();
    host.await_suspended();
    EXPECT_EQ(host.signals("SigBlk"), while_idle);
}

TEST_F(Quiet, arithmetic_is_that_of_a_handler)
{
    QuietProbe host(block, Start{.module = "hooks", .environment = {"HOOKS_X87=f7f"}});
    host.enter_by_signal();
    const std::vector<int32_t> in_handler = arithmetic(host);
    for (int round = 0; round < 3; round++) {
        host.ask(PROBE_ROUNDING, 0x77f); // an inexact result, and another rounding
        host.leave_and_enter_quietly();
        EXPECT_EQ(arithmetic(host), in_handler);
    }
    host.leave();
}

TEST_F(Quiet, the_alternate_stack_is_that_of_the_wait)
{
    QuietProbe host(block);
    host.enter_by_signal();
    for (int round = 0; round < 3; round++) {
        host.ask(PROBE_SET_STACK, 65536);
        host.leave_and_enter_quietly();
        EXPECT_EQ(host.ask(PROBE_STACK_NOW), 0);
    }
    host.leave();
}

TEST_F(Quiet, an_alternate_stack_that_handlers_disarm_leaves_all_calls_to_signals)
{
    QuietProbe host(block, Start{.module = "hooks", .environment = {"HOOKS_STACK=-65536"}});
    for (int round = 0; round < 3; round++) {
        EXPECT_FALSE(host.request());
        EXPECT_EQ(host.ask(PROBE_STACK_NOW), 0);
        host.leave();
        host.await_suspended();
    }
}

// ---- Call-backs --------------------------------------------------------------------------------------------------

TEST_F(Quiet, answers_come_without_a_signal_and_leave_their_mask_to_the_rest_of_the_call)
{
    QuietProbe host(block);
    host.enter_by_signal();
    for (int round = 0; round < 3; round++) {
        for (int32_t value = 1; value <= 10; value++) {
            EXPECT_EQ(host.callback_answered_quietly(value, 3 * value), 3 * value);
            EXPECT_EQ(block.get(Head::cbval), value);
            EXPECT_EQ(host.signals("SigBlk"), after_callback);
        }
        host.leave_and_enter_quietly();
        EXPECT_EQ(host.signals("SigBlk"), in_call);
    }
    host.leave();
    EXPECT_FALSE(host.has_signalled());
}

TEST_F(Quiet, an_answer_that_is_long_in_coming_comes_with_a_signal)
{
    QuietProbe host(block);
    host.enter_by_signal();
    host.leave_and_enter_quietly();
    host.begin(PROBE_CALLBACK, 5);
    host.await_callback();
    host.await_suspended();
    EXPECT_EQ(host.signals("SigBlk"), in_callback);
    EXPECT_FALSE(host.answer_callback(55));
    EXPECT_EQ(host.finish(), 55);
    EXPECT_EQ(host.signals("SigBlk"), after_callback);
    host.leave_and_enter_quietly();
    EXPECT_EQ(host.signals("SigBlk"), in_call);
    host.leave();
}

TEST_F(Quiet, a_callback_on_a_thread_of_the_modules_waits_for_a_signal)
{
    QuietProbe host(block);
    host.enter_by_signal();
    host.begin(PROBE_CALLBACK_IN_THREAD, 5);
    host.await_callback();
    EXPECT_EQ(word(block.annex().waits), wire::HOST_IN_SIGSUSPEND);
    EXPECT_FALSE(host.answer_callback(55));
    EXPECT_EQ(host.finish(), 55);
    host.leave();
}

// At any moment of the host's wait.
TEST_F(Quiet, the_request_of_a_call_that_a_foreign_signal_has_begun_is_no_answer)
{
    QuietProbe host(block);
    host.enter_by_signal();
    for (int round = 0; round < 40; round++) {
        host.leave();
        host.await_suspended();
        host.ring_from_elsewhere();
        host.ask(PROBE_BASE);
        host.begin(PROBE_CALLBACK, round);
        host.await_callback();
        usleep(static_cast<useconds_t>(round * 100)); // to 4 ms: across the end of the host's sleep
        host.request();
        host.await_callback();
        host.answer_callback(7 * round);
        ASSERT_EQ(host.finish(), 7 * round);
    }
}

// ---- A module that takes the signal for itself -------------------------------------------------------------------

TEST_F(Quiet, calls_of_a_module_that_handles_the_signal_go_to_its_handler)
{
    QuietProbe host(block);
    host.enter_by_signal();
    host.ask(PROBE_HANDLE, SIGUSR2);
    block.number_request();
    host.begin(PROBE_RETURN);
    host.await([&] { return host.handled() == 1; }, "the module's handler");
    host.await_suspended();
    EXPECT_FALSE(host.request());
    host.await([&] { return host.handled() == 2; }, "the module's handler");
    EXPECT_EQ(word(block.annex().started), 1u);
}

TEST_F(Quiet, calls_of_a_module_that_ignores_the_signal_are_not_heard)
{
    QuietProbe host(block);
    host.enter_by_signal();
    host.ask(PROBE_IGNORE, SIGUSR2);
    block.number_request();
    host.begin(PROBE_RETURN);
    host.await([&] { return word(block.annex().waits) == wire::HOST_IN_SIGSUSPEND; }, "the wait");
    host.await([&] { return host.signals("SigBlk") == while_idle; }, "the wait for signals");
    EXPECT_EQ(word(block.annex().started), 1u);
}

TEST_F(Quiet, a_handler_of_the_module_around_the_hosts_own_runs_around_each_call)
{
    QuietProbe host(block);
    host.enter_by_signal();
    host.ask(PROBE_WRAP);
    host.leave_and_enter_quietly();
    for (int round = 1; round <= 3; round++) {
        EXPECT_EQ(host.handled(), 2 * round - 1);
        host.leave();
        host.await([&] { return host.handled() == 2 * round; }, "the rest of the module's handler");
        host.request();
        host.ask(PROBE_BASE);
    }
    host.leave();
}

// ---- Signals of others, and the end ------------------------------------------------------------------------------

TEST_F(Quiet, a_signal_of_somebody_else_is_taken_at_last)
{
    QuietProbe host(block);
    host.enter_by_signal();
    host.leave_and_enter_quietly();
    host.ring_from_elsewhere();
    host.await([&] { return host.signals("ShdPnd").contains(SIGUSR2); }, "the signal");
    block.set(Head::argc, 0); // before the host can take it
    host.leave();
    host.await([&] { return word(block.annex().started) == 3; }, "its call");
    host.await([&] { return block.get(Head::retcode) == KA_WRONG_COUNT; }, "its refusal");
    EXPECT_EQ(host.terminate(), exited(0));
}

// A call on top of one that came without a signal: that one is not mistaken for the wait.
TEST_F(Quiet, a_function_that_lets_the_signal_in_is_gone_on_with_after_a_call_on_top)
{
    QuietProbe host(block);
    host.enter_by_signal();
    host.leave_and_enter_quietly();
    block.set(Head::argc, 0); // the call on top is refused
    for (uint32_t round = 1; round <= 3; round++) {
        block.number_request();
        host.ring();
        host.begin(PROBE_UNBLOCK, SIGUSR2);
        EXPECT_EQ(host.finish(), 0);
        EXPECT_EQ(word(block.annex().started), 2 + round);
        EXPECT_EQ(host.ask(PROBE_BLOCK, SIGUSR2), 0);
    }
    host.leave();
}

TEST_F(Quiet, a_number_that_the_module_has_overwritten_makes_nothing_run_again)
{
    for (uint32_t number : {0u, 0xffffffffu, 4711u}) {
        QuietBlock fresh;
        QuietProbe host(fresh);
        host.enter_by_signal();
        host.leave_and_enter_quietly();
        fresh.annex().request = number;
        host.begin(PROBE_RETURN, 0);
        host.await_suspended();
        EXPECT_EQ(word(fresh.annex().started), 2u);
        EXPECT_EQ(word(fresh.annex().done), 2u);
    }
}

class QuietEnd : public Quiet, public testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(After, QuietEnd, testing::Values(0, 10, 100, 1000, 3000),
                         [](const auto &us) { return std::to_string(us.param) + "_us"; });

// In the spin, in the sleep and in the wait for signals.
TEST_P(QuietEnd, the_end_signal_ends_the_host_at_once)
{
    QuietProbe host(block);
    host.enter_by_signal();
    host.leave_and_enter_quietly();
    host.leave();
    usleep(static_cast<useconds_t>(GetParam()));
    EXPECT_EQ(host.terminate(), exited(0));
    EXPECT_EQ(word(block.annex().life), 0u);
}

TEST_P(QuietEnd, a_host_that_was_stopped_goes_on)
{
    QuietProbe host(block);
    host.enter_by_signal();
    host.leave_and_enter_quietly();
    host.leave();
    usleep(static_cast<useconds_t>(GetParam()));
    host.stop();
    host.request();
    host.resume();
    EXPECT_EQ(host.ask(PROBE_BASE), 0);
    host.leave();
    EXPECT_EQ(word(block.annex().started), 3u);
}

TEST_F(Quiet, the_end_signal_ends_a_host_inside_a_call_and_a_callback)
{
    for (int32_t command : {PROBE_ARGC, PROBE_CALLBACK}) {
        QuietBlock fresh;
        QuietProbe host(fresh);
        host.enter_by_signal();
        host.leave_and_enter_quietly();
        host.begin(command, 1);
        EXPECT_EQ(host.terminate(), exited(0));
    }
}
