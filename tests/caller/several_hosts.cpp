// SPDX-License-Identifier: MIT
//
// Several hosts of one program: side by side, one inside a call-back of the other, and one that dies.
#include "caller/hosts.h"

#include <csignal>
#include <memory>
#include <thread>

namespace {

class SeveralHosts : public testing::TestWithParam<int32_t> {
protected:
    std::unique_ptr<Host> open(ka_callback *callback = nullptr, void *user = nullptr)
    {
        return std::make_unique<Host>([&](ka_options &options) {
            options.waiting = GetParam();
            options.callback = callback;
            options.user = user;
        });
    }
};
INSTANTIATE_TEST_SUITE_P(Waiting, SeveralHosts, testing::Values(KA_WAIT_SAFE, KA_WAIT_FAST),
                         [](const auto &way) { return way.param == KA_WAIT_SAFE ? "safe" : "fast"; });

int32_t ask_next(ka_host *, int32_t value, void *next)
{
    return call_with(*static_cast<Host *>(next), "ask", value + 1);
}

int32_t add_one(ka_host *, int32_t value, void *)
{
    return value + 1;
}

} // namespace

TEST_P(SeveralHosts, are_called_in_turn)
{
    std::vector<std::unique_ptr<Host>> hosts;
    for (int i = 0; i < 8; i++)
        hosts.push_back(open(add_one));
    for (int32_t i = 0; i < 1000; i++) {
        ASSERT_EQ(call_with(*hosts[static_cast<size_t>(i % 8)], "give_code", i), i);
        ASSERT_EQ(call_with(*hosts[static_cast<size_t>(i % 7)], "ask", i), i + 1);
    }
}

TEST_P(SeveralHosts, call_each_other_through_callbacks)
{
    const auto last = open(add_one);
    const auto third = open(ask_next, last.get());
    const auto second = open(ask_next, third.get());
    const auto first = open(ask_next, second.get());
    for (int32_t i = 0; i < 300; i++)
        ASSERT_EQ(call_with(*first, "ask", i), i + 4);
}

TEST_P(SeveralHosts, one_that_dies_does_not_disturb_another)
{
    const auto survivor = open(add_one);
    for (int32_t i = 0; i < 20; i++) {
        const auto victim = open();
        ka_begin(*victim, i % 2 ? "fault" : "ring_and_die");
        ASSERT_EQ(call_fails(*victim), KA_DIED);
        ASSERT_EQ(call_with(*survivor, "ask", i), i + 1);
    }
}

TEST_P(SeveralHosts, one_that_dies_inside_a_callback_of_another_leaves_that_one_well)
{
    const auto victim = open();
    const auto host = open(
        [](ka_host *, int32_t value, void *user) {
            ka_host *other = *static_cast<Host *>(user);
            ka_begin(other, "die_by");
            ka_add_integer(other, SIGKILL, KA_BY_VALUE);
            EXPECT_EQ(call_fails(other), value == 1 ? KA_DIED : KA_CLOSED);
            return value;
        },
        victim.get());
    EXPECT_EQ(call_with(*host, "ask", 1), 1);
    EXPECT_EQ(call_with(*host, "ask", 2), 2);
}

// Another host, for which no thread waits, answers a signal with a refusal, which arrives during the calls.
TEST_P(SeveralHosts, unasked_reply_of_one_is_no_reply_of_another)
{
    const auto noisy = open();
    const auto host = open(add_one);
    for (int32_t i = 0; i < 2000; i++) {
        kill(ka_pid(*noisy), SIGUSR2);
        ASSERT_EQ(call_with(*host, "give_code", i % 20), i % 20);
        ASSERT_EQ(call_with(*host, "ask", i), i + 1);
    }
    EXPECT_TRUE(becomes_idle(ka_pid(*noisy)));
    EXPECT_EQ(call_with(*noisy, "give_code", 5), 5);
}
