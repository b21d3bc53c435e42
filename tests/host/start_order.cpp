// SPDX-License-Identifier: MIT
//
// The order of the steps from start to end, as the kernel sees it.
#include <gtest/gtest.h>

#include <algorithm>

#include "host/block.h"
#include "host/system_calls.h"

namespace {

using namespace harness;
using Steps = std::vector<std::string>;

const std::set<int> untouched = {SIGKILL, SIGUSR2, SIGTERM, SIGSTOP};
const std::set<int> faults = {SIGILL, SIGTRAP, SIGBUS, SIGSEGV};
// The C library keeps these for itself and refuses to touch them.
const std::set<int> kept_by_libc = {32, 33};

Steps resets(const std::set<int> &ignored)
{
    Steps steps;
    for (int signal = 1; signal <= 64; signal++) {
        if (untouched.contains(signal) || kept_by_libc.contains(signal)) continue;
        const std::string number = std::to_string(signal);
        if (!faults.contains(signal)) steps.push_back("look " + number);
        if (faults.contains(signal) || !ignored.contains(signal)) steps.push_back("default " + number);
    }
    return steps;
}

// Up to and including the closing of descriptors.
Steps first_steps(const std::set<int> &ignored)
{
    Steps steps = {"block 2 10 12 14 29"};
    const Steps middle = resets(ignored);
    steps.insert(steps.end(), middle.begin(), middle.end());
    steps.push_back("block 13 22 25"); // while what constructors printed is written
    steps.push_back("close");
    return steps;
}

const Steps setup_and_first_wait = {"write setup\n", "handle 15 restart", "handle 12 restart", "wait 2 10 14 29"};

Steps joined(Steps first, const Steps &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

TEST(StartOrder, signals_then_descriptors_then_block_then_setup_then_handlers_then_the_wait)
{
    Block block;
    Life life = watch(Start{.module = "order"}, block.argument());
    EXPECT_EQ(life.end, exited(0));
    const auto wait = std::find(life.steps.begin(), life.steps.end(), "wait 2 10 14 29");
    ASSERT_NE(wait, life.steps.end());
    const Steps start(life.steps.begin(), wait + 1);
    EXPECT_EQ(start, joined(joined(first_steps({}), {"attach"}), setup_and_first_wait));
}

TEST(StartOrder, ignored_signals_are_looked_at_and_left)
{
    Block block;
    const std::set<int> ignored = {SIGHUP, SIGSEGV, SIGCHLD, 64};
    Life life = watch(Start{.module = "order", .ignored = {ignored.begin(), ignored.end()}}, block.argument());
    const Steps expected = joined(first_steps(ignored), {"attach"});
    ASSERT_GT(life.steps.size(), expected.size());
    EXPECT_EQ(Steps(life.steps.begin(), life.steps.begin() + static_cast<long>(expected.size())), expected);
}

TEST(StartOrder, the_end_detaches_then_cleans_up_then_exits)
{
    Block block;
    const Life life = watch(Start{.module = "order"}, block.argument());
    const auto wait = std::find(life.steps.begin(), life.steps.end(), "wait 2 10 14 29");
    ASSERT_NE(wait, life.steps.end());
    Steps rest(wait + 1, life.steps.end());
    std::erase_if(rest, [](const std::string &step) { return step.starts_with("block"); });
    EXPECT_EQ(rest, (Steps{"detach", "write cleanup\n", "exit 0"}));
}

TEST(StartOrder, descriptors_are_closed_before_an_attachment_that_fails)
{
    Block block;
    const Life life = watch(Start{.module = "order", .arguments = {{"2147483647"}}}, block.argument());
    EXPECT_EQ(life.end, exited(2));
    ASSERT_GE(life.steps.size(), 3u);
    EXPECT_EQ(life.steps[life.steps.size() - 1], "exit 2");
    std::string written;
    Steps steps;
    for (const std::string &step : life.steps) {
        if (step.starts_with("write ")) {
            written += step.substr(6);
        } else {
            steps.push_back(step);
        }
    }
    EXPECT_EQ(written, "shmat: Invalid argument\n");
    steps.resize(std::min(steps.size(), first_steps({}).size() + 1));
    EXPECT_EQ(steps, joined(first_steps({}), {"attach"}));
}

TEST(StartOrder, a_refused_block_is_not_detached)
{
    Block block;
    block.store<char>(7, 'x');
    const Life life = watch(Start{.module = "order"}, block.argument());
    EXPECT_EQ(life.end, exited(2));
    EXPECT_EQ(Steps(life.steps.end() - 3, life.steps.end()), (Steps{"attach", "write Bad DLL_MAGIC\n", "exit 2"}));
    Block old;
    old.set(Head::version, 0x100);
    const Life second = watch(Start{.module = "order"}, old.argument());
    EXPECT_EQ(std::count(second.steps.begin(), second.steps.end(), "detach"), 0);
    EXPECT_EQ(std::count(second.steps.begin(), second.steps.end(), "write setup\n"), 0);
}

TEST(StartOrder, command_line_errors_come_before_any_change_of_signals_or_descriptors)
{
    Block block;
    for (const std::vector<std::string> &arguments : {Steps{"1:16"}, Steps{"1", "2"}, Steps{}}) {
        const Life life = watch(Start{.module = "order", .arguments = arguments}, block.argument());
        EXPECT_EQ(life.end, exited(2));
        EXPECT_EQ(life.steps, Steps{});
    }
}

// The larger limit is as high as this machine allows.
TEST(StartOrder, closing_takes_no_more_system_calls_under_a_larger_limit)
{
    Block block;
    for (const auto &filter : {std::vector<sock_filter>{}, without_close_range(), refused_close_range()}) {
        const Life few = watch(Start{.module = "order", .open_max = 100, .filter = filter}, block.argument());
        rlimit limit = {};
        getrlimit(RLIMIT_NOFILE, &limit);
        const Life many =
            watch(Start{.module = "order", .open_max = limit.rlim_max, .filter = filter}, block.argument());
        EXPECT_EQ(few.closes, many.closes);
        EXPECT_LT(many.closes, 20);
    }
}

} // namespace
