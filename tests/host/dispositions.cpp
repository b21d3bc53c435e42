// SPDX-License-Identifier: MIT
//
// A host's changes to the signal actions that it inherits: as /proc shows them, and in their effects.
#include <gtest/gtest.h>

#include "host/probe.h"
#include "host/probe_mailbox.h"

namespace {

using namespace harness;

const std::set<int> handled = {SIGUSR2, SIGTERM};
const std::set<int> faults = {SIGILL, SIGTRAP, SIGBUS, SIGSEGV};

// 9 and 19 cannot be ignored by anybody.
std::vector<int> ignorable()
{
    std::vector<int> all;
    for (int signal = 1; signal <= 64; signal++) {
        if (signal != SIGKILL && signal != SIGSTOP) all.push_back(signal);
    }
    return all;
}

struct Seen {
    std::set<int> ignored;
    std::set<int> caught;
    bool operator==(const Seen &) const = default;
};

void PrintTo(const Seen &seen, std::ostream *out)
{
    *out << "ignored " << testing::PrintToString(seen.ignored) << ", caught " << testing::PrintToString(seen.caught);
}

Seen actions_of_host_inheriting(const std::vector<int> &ignored)
{
    Block block;
    HostProcess host(block, Start{.module = "noop", .ignored = ignored});
    host.await_idle();
    const Seen seen = {host.signals("SigIgn"), host.signals("SigCgt")};
    EXPECT_EQ(host.terminate(), exited(0));
    return seen;
}

TEST(Dispositions, inherited_defaults_stay_and_two_signals_are_handled)
{
    EXPECT_EQ(actions_of_host_inheriting({}), (Seen{{}, handled}));
}

TEST(Dispositions, each_signal_inherited_as_ignored_stays_so_unless_it_is_a_fault_or_handled)
{
    for (const int signal : ignorable()) {
        SCOPED_TRACE(signal);
        const bool stays = !faults.contains(signal) && !handled.contains(signal);
        EXPECT_EQ(actions_of_host_inheriting({signal}), (Seen{stays ? std::set{signal} : std::set<int>{}, handled}));
    }
}

TEST(Dispositions, all_signals_inherited_as_ignored_at_once)
{
    std::set<int> expected;
    for (const int signal : ignorable()) {
        if (!faults.contains(signal) && !handled.contains(signal)) expected.insert(signal);
    }
    EXPECT_EQ(actions_of_host_inheriting(ignorable()), (Seen{expected, handled}));
}

// The handler that a static constructor installs comes with a mask and flags.
TEST(Dispositions, a_handler_of_a_static_constructor_becomes_the_plain_default)
{
    for (const int signal : {SIGHUP, SIGSEGV, 64}) {
        SCOPED_TRACE(signal);
        Block block;
        Probe host(block, {}, Start{.module = "probe", .environment = {"PROBE_HANDLES=" + std::to_string(signal)}});
        EXPECT_EQ(host.ask(PROBE_DEFAULT, signal), 1);
        host.leave();
        EXPECT_EQ(host.signals("SigCgt"), handled);
    }
}

TEST(Dispositions, a_default_signal_ends_the_host)
{
    for (const int signal : {SIGHUP, SIGPIPE, SIGQUIT, SIGRTMIN, 64}) {
        Block block;
        HostProcess host(block, "noop");
        host.await_idle();
        host.ring(signal);
        EXPECT_EQ(host.await_end(), killed(signal));
    }
}

TEST(Dispositions, a_signal_inherited_as_ignored_does_no_harm)
{
    Block block;
    HostProcess host(block, Start{.module = "noop", .ignored = {SIGHUP, SIGPIPE, SIGQUIT, 64}});
    host.await_idle();
    for (const int signal : {SIGHUP, SIGPIPE, SIGQUIT, 64})
        host.ring(signal);
    place(block, "noop");
    EXPECT_EQ(host.call(), 11);
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(Dispositions, a_fault_ends_the_host_although_it_was_inherited_as_ignored)
{
    for (const int signal : faults) {
        Block block;
        HostProcess host(block, Start{.module = "noop", .ignored = {faults.begin(), faults.end()}});
        host.await_idle();
        host.ring(signal);
        EXPECT_EQ(host.await_end(), killed(signal));
    }
}

TEST(Dispositions, calls_and_the_end_work_although_their_signals_were_inherited_as_ignored)
{
    Block block;
    HostProcess host(block, Start{.module = "noop", .ignored = {SIGUSR2, SIGTERM}});
    place(block, "noop");
    EXPECT_EQ(host.call(), 11); // sent before the host is ready: blocked signals are kept even when ignored
    EXPECT_EQ(host.terminate(), exited(0));
}

} // namespace
