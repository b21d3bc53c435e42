// SPDX-License-Identifier: MIT
//
// The scratch area: whether there is one, and how much room it has.
#include <gtest/gtest.h>

#include <climits>

#include "host/probe.h"
#include "host/probe_mailbox.h"

namespace {

using namespace harness;

class ScratchRoom : public testing::TestWithParam<Layout> {
protected:
    Block block{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(Layouts, ScratchRoom, testing::Values(Layout::native, Layout::layout_32, Layout::layout_64));

TEST_P(ScratchRoom, none_when_the_caller_gives_none)
{
    Probe host(block);
    for (const int32_t size : {0, 1, -1, INT_MIN, INT_MAX})
        EXPECT_EQ(host.ask(PROBE_SCRATCH, size), -1) << size;
    host.leave();
}

TEST_P(ScratchRoom, reaches_to_the_end_of_the_segment)
{
    const int32_t start = block.size() - 16;
    block.set(Head::scratch, block.address(start));
    Probe host(block);
    EXPECT_EQ(host.ask(PROBE_SCRATCH, 16), start);
    EXPECT_EQ(host.ask(PROBE_SCRATCH, 17), -1);
    EXPECT_EQ(host.ask(PROBE_SCRATCH, 1), start); // always the same place
    EXPECT_EQ(host.ask(PROBE_SCRATCH, INT_MAX), -1);
    host.leave();
}

TEST_P(ScratchRoom, a_negative_or_zero_size_always_fits)
{
    const int32_t start = block.size() - 1;
    block.set(Head::scratch, block.address(start));
    Probe host(block);
    for (const int32_t size : {0, -1, INT_MIN, 1})
        EXPECT_EQ(host.ask(PROBE_SCRATCH, size), start) << size;
    EXPECT_EQ(host.ask(PROBE_SCRATCH, 2), -1);
    host.leave();
}

TEST_P(ScratchRoom, may_begin_with_the_segment)
{
    block.set(Head::scratch, block.address(0));
    Probe host(block);
    EXPECT_EQ(host.ask(PROBE_SCRATCH, block.size()), 0);
    EXPECT_EQ(host.ask(PROBE_SCRATCH, block.size() + 1), -1);
    host.leave();
}

TEST_P(ScratchRoom, address_and_size_are_read_at_each_use)
{
    Probe host(block);
    EXPECT_EQ(host.ask(PROBE_SCRATCH, 1), -1);
    block.set(Head::scratch, block.address(9001));
    EXPECT_EQ(host.ask(PROBE_SCRATCH, 1), 9001);
    block.set(Head::shmsz, 9010);
    EXPECT_EQ(host.ask(PROBE_SCRATCH, 9), 9001);
    EXPECT_EQ(host.ask(PROBE_SCRATCH, 10), -1);
    block.set(Head::scratch, 0);
    EXPECT_EQ(host.ask(PROBE_SCRATCH, 1), -1);
    host.leave();
}

TEST_P(ScratchRoom, with_a_base_of_zero_an_area_at_the_start_counts_as_none)
{
    block.set(Head::base, 0);
    Probe host(block);
    block.set(Head::scratch, block.address(0));
    EXPECT_EQ(host.ask(PROBE_SCRATCH, 1), -1);
    block.set(Head::scratch, block.address(1));
    EXPECT_EQ(host.ask(PROBE_SCRATCH, 1), 1);
    host.leave();
}

TEST(Scratch, layout_64_is_present_when_only_the_high_half_is_set)
{
    Block block(Layout::layout_64);
    block.set(Head::base, 0x500000000);
    Probe host(block);
    for (int byte = 4; byte < 8; byte++) {
        block.set(Head::scratch, int64_t{1} << (8 * byte));
        EXPECT_EQ(host.ask(PROBE_SCRATCH, block.size()), 0) << "byte " << byte;
    }
    block.set(Head::scratch, 0);
    EXPECT_EQ(host.ask(PROBE_SCRATCH, 1), -1);
    host.leave();
}

TEST(Scratch, layout_64_translates_a_low_half_of_zero_as_any_other)
{
    Block block(Layout::layout_64);
    block.set(Head::base, 0x1000);
    Probe host(block);
    block.set(Head::scratch, 0x100000000);
    host.begin(PROBE_SCRATCH, 1);
    EXPECT_EQ(host.await_end(), killed(SIGABRT));
    EXPECT_NE(host.errors().find(": dll_scratch: Assertion"), std::string::npos) << host.errors();
}

} // namespace
