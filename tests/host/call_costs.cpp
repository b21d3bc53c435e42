// SPDX-License-Identifier: MIT
//
// The cost of a call and of a call-back in system calls. More of them make every call slower: think twice.
#include <gtest/gtest.h>

#include "host/host_process.h"
#include "host/system_calls.h"

namespace {

using namespace harness;

class Costs : public testing::Test {
protected:
    int of_next_signal()
    {
        host.await_idle();
        return system_calls_until_next_wait(host.pid());
    }
    Block block;
    HostProcess host{block, "noop"};
};

TEST_F(Costs, a_call_takes_the_reply_beside_the_wait)
{
    place(block, "noop");
    for (int round = 0; round < 3; round++) {
        EXPECT_EQ(of_next_signal(), 1);
        host.await_signal();
        EXPECT_EQ(block.get(Head::retcode), 11);
    }
}

TEST_F(Costs, a_callback_takes_two_actions_and_the_signal)
{
    place(block, "call_back");
    for (int round = 0; round < 3; round++) {
        EXPECT_EQ(of_next_signal(), 2); // the call up to the wait for the answer
        host.await_signal();
        block.set(Head::retcode, 40 + round);
        EXPECT_EQ(of_next_signal(), 3); // the answer and the rest of the call
        host.await_signal();
        EXPECT_EQ(block.get(Head::retcode), 40 + round);
    }
}

} // namespace
