// SPDX-License-Identifier: MIT
//
// The harness itself: it reads back what it writes, it sees a host that dies, and it leaves nothing over.
#include <gtest/gtest.h>
#include <sys/shm.h>

#include <cerrno>

#include "host/probe.h"
#include "host/probe_mailbox.h"

namespace {

using namespace harness;
using Texts = std::vector<std::string>;

class HarnessIn : public testing::TestWithParam<Layout> {};
INSTANTIATE_TEST_SUITE_P(Layouts, HarnessIn, testing::Values(Layout::native, Layout::layout_32, Layout::layout_64));

TEST_P(HarnessIn, values_are_read_back_as_they_were_placed)
{
    Block block(GetParam());
    place(block, "name",
          {integers({1, -2, 3}).spaced(5), reals({"4.2", "-1e100", "0"}).unaligned(3).by_ref(),
           strings({"", "ab", std::string("\0c", 2)}, 9).by_ref(7)});
    EXPECT_EQ(block.get(Head::argc), 4);
    EXPECT_EQ(strings_of(block, 0), Texts{"name"});
    EXPECT_EQ(integers_of(block, 1), (std::vector<int32_t>{1, -2, 3}));
    const std::vector<t_DECIMAL> numbers = decimals_of(block, 2);
    ASSERT_EQ(numbers.size(), 3u);
    EXPECT_EQ(deccmp(&numbers[1], &numbers[0]), -1);
    EXPECT_EQ(reals_of(block, 2)[0], "4.2");
    EXPECT_EQ(reals_of(block, 2)[2], "0");
    EXPECT_EQ(strings_of(block, 3), (Texts{"", "ab", std::string("\0c", 2)}));
    EXPECT_EQ(block.get(1, Arg::elsz), 5);
    EXPECT_EQ(block.offset_of(block.get(2, Arg::ptr)) % 8, 3);
    EXPECT_EQ(block.get(2, Arg::ref), 1);
    EXPECT_EQ(block.get(3, Arg::ref), 7);
    EXPECT_EQ(block.get(3, Arg::maxlen), 9);
    EXPECT_EQ(block.get(3, Arg::elsz), 4);
}

TEST(Harness, too_many_values_for_the_segment_are_refused)
{
    Block block(Layout::native, 8192);
    EXPECT_THROW(place(block, "name", {string(std::string(5000, 'x'))}), std::runtime_error);
}

TEST(Harness, a_module_that_does_not_exist_is_named)
{
    Block block;
    try {
        HostProcess host(block, "no_such_module");
        FAIL() << "started";
    } catch (const std::exception &error) {
        EXPECT_NE(std::string(error.what()).find("no_such_module"), std::string::npos) << error.what();
    }
}

TEST(Harness, a_host_that_dies_ends_every_wait)
{
    Block block;
    Probe host(block);
    host.begin(PROBE_RAISE, SIGKILL);
    EXPECT_THROW(host.finish(), std::runtime_error);
    EXPECT_THROW(host.await_signal(), std::runtime_error);
    EXPECT_THROW(host.await_idle(), std::runtime_error);
    EXPECT_THROW(host.ring(), std::runtime_error);
    EXPECT_EQ(host.await_end(), killed(SIGKILL));
}

TEST(Harness, nothing_is_left_of_a_host_in_a_call)
{
    pid_t pid = -1;
    int segment = -1;
    {
        Block block;
        Probe host(block);
        pid = host.pid();
        segment = block.id();
    }
    EXPECT_EQ(kill(pid, 0), -1);
    EXPECT_EQ(errno, ESRCH);
    shmid_ds state;
    EXPECT_EQ(shmctl(segment, IPC_STAT, &state), -1);
}

TEST(Harness, much_output_of_a_host_holds_nothing_up)
{
    Block block;
    Probe host(block);
    for (int i = 0; i < 20; i++)
        host.ask(PROBE_WRITE_MUCH, 10000);
    host.leave();
    EXPECT_EQ(host.terminate(), exited(0));
    EXPECT_EQ(host.errors(), std::string(200000, 'm'));
}

TEST(Harness, hidden_line_is_the_first_number_between_colons)
{
    EXPECT_EQ(with_line_hidden("a:b: c:12x:345: d:6:"), "a:b: c:12x:LINE: d:6:");
    EXPECT_EQ(with_line_hidden("no number: here"), "no number: here");
}

} // namespace
