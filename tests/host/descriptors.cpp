// SPDX-License-Identifier: MIT
//
// Which inherited descriptors a host keeps: standard error, and those that its limit does not reach.
#include <gtest/gtest.h>

#include "host/probe.h"
#include "host/probe_mailbox.h"

namespace {

using namespace harness;
using Set = std::set<int>;

Set kept_by(Start how)
{
    Block block;
    HostProcess host(block, std::move(how));
    host.await_idle();
    EXPECT_EQ(host.errors(), "");
    return host.descriptors();
}

// The limit is lowered by the module itself, before main: no program could be loaded under so low a limit.
Set kept_under_limit(const char *limit, std::vector<sock_filter> filter)
{
    return kept_by(Start{.module = "probe",
                         .environment = {std::string("PROBE_OPEN_MAX=") + limit},
                         .descriptors = {0, 1, 3, 4, 5},
                         .filter = std::move(filter)});
}

// By the means that the kernel leaves: a range in one call, one by one as listed in /proc, one by one.
class Descriptors : public testing::TestWithParam<std::vector<sock_filter>> {
protected:
    static std::vector<sock_filter> filter() { return GetParam(); }
};

TEST_P(Descriptors, all_but_standard_error_are_closed)
{
    const std::vector<int> inherited = {0, 1, 3, 4, 5, 77, 199};
    EXPECT_EQ(kept_by(Start{.module = "noop", .descriptors = inherited, .filter = filter()}), Set{2});
}

TEST_P(Descriptors, those_from_the_limit_on_stay_open)
{
    const std::vector<int> inherited = {0, 1, 5, 98, 99, 100, 101, 199};
    const Start how = {.module = "noop", .descriptors = inherited, .open_max = 100, .filter = filter()};
    EXPECT_EQ(kept_by(how), (Set{2, 100, 101, 199}));
}

TEST_P(Descriptors, a_limit_of_zero_closes_nothing)
{
    EXPECT_EQ(kept_under_limit("0", filter()), (Set{0, 1, 2, 3, 4, 5}));
}

TEST_P(Descriptors, small_limits_close_what_is_below_them)
{
    EXPECT_EQ(kept_under_limit("1", filter()), (Set{1, 2, 3, 4, 5}));
    EXPECT_EQ(kept_under_limit("2", filter()), (Set{2, 3, 4, 5}));
    EXPECT_EQ(kept_under_limit("3", filter()), (Set{2, 3, 4, 5}));
    EXPECT_EQ(kept_under_limit("4", filter()), (Set{2, 4, 5}));
    EXPECT_EQ(kept_under_limit("5", filter()), (Set{2, 5}));
}

INSTANTIATE_TEST_SUITE_P(CloseRange, Descriptors, testing::Values(std::vector<sock_filter>{}));
INSTANTIATE_TEST_SUITE_P(Listed, Descriptors, testing::Values(without_close_range(), refused_close_range()));
INSTANTIATE_TEST_SUITE_P(Unlisted, Descriptors, testing::Values(without_folders()));

TEST(Output, a_function_can_write_on_standard_error_only)
{
    Block block;
    Probe host(block);
    EXPECT_EQ(host.ask(PROBE_WRITE, 0), EBADF);
    EXPECT_EQ(host.ask(PROBE_WRITE, 1), EBADF);
    EXPECT_EQ(host.ask(PROBE_WRITE, 2), 0);
    host.leave();
    EXPECT_EQ(host.terminate(), exited(0));
    EXPECT_EQ(host.errors(), "x");
}

} // namespace
