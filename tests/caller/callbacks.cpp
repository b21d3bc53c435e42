// SPDX-License-Identifier: MIT
//
// Call-backs, and how a call-back is distinguished from the end of a call if the block does not show it.
#include "caller/hosts.h"

#include <climits>

class CallBacks : public EveryWay {
protected:
    // Answers each call-back with the function given.
    std::function<void(ka_options &)> answering(std::function<int32_t(int32_t)> answer)
    {
        answer_ = std::move(answer);
        return [this](ka_options &options) {
            layout()(options);
            options.user = this;
            options.callback = [](ka_host *, int32_t value, void *user) {
                auto *self = static_cast<CallBacks *>(user);
                self->values.push_back(value);
                return self->answer_(value);
            };
        };
    }
    std::vector<int32_t> values;

private:
    std::function<int32_t(int32_t)> answer_;
};
IN_EVERY_WAY(CallBacks);

TEST_P(CallBacks, value_arrives_and_answer_returns)
{
    Host host(answering([](int32_t value) { return value + 1000; }));
    EXPECT_EQ(call_with(host, "ask", 7), 1007);
    EXPECT_EQ(values, std::vector<int32_t>({7}));
}

TEST_P(CallBacks, unanswered_ones_are_answered_zero)
{
    Host host(layout());
    EXPECT_EQ(call_with(host, "ask", 7), 0);
}

TEST_P(CallBacks, many_in_sequence)
{
    Host host(answering([](int32_t value) { return 2 * value; }));
    ka_begin(host, "ask_many");
    ka_add_integer(host, 1000, KA_BY_VALUE);
    ka_add_integer(host, 0, KA_BY_REFERENCE);
    EXPECT_EQ(call(host), 0);
    EXPECT_EQ(integers(host, 2, 1), std::vector<int32_t>({999000}));
    ASSERT_EQ(values.size(), 1000u);
    EXPECT_EQ(values[999], 999);
}

// The answer is in retcode, and "ask" returns the answer: the block looks as if nothing had happened.
TEST_P(CallBacks, return_code_equal_to_the_answer_is_the_end_of_the_call)
{
    Host host(answering([](int32_t value) { return value; }));
    for (int32_t value : {0, 5, -1, 9, INT_MIN, INT_MAX})
        EXPECT_EQ(call_with(host, "ask", value), value);
    EXPECT_EQ(values.size(), 6u);
}

TEST_P(CallBacks, value_equal_to_the_last_one_is_another_callback)
{
    Host host(answering([](int32_t) { return 9; }));
    for (int i = 0; i < 20; i++)
        EXPECT_EQ(call_with(host, "ask", 9), 9);
    EXPECT_EQ(values, std::vector<int32_t>(20, 9));
}

// The module calls back with the mark that the library put there, and returns what it finds in retcode.
TEST_P(CallBacks, exchanges_that_never_change_the_block_are_told_apart)
{
    Host host(answering([](int32_t) { return 3; }));
    for (int32_t rounds : {0, 1, 2, 50}) {
        values.clear();
        ka_begin(host, "ask_unseen");
        ka_add_integer(host, offset_of_cbval(), KA_BY_VALUE);
        ka_add_integer(host, offset_of_retcode(), KA_BY_VALUE);
        ka_add_integer(host, rounds, KA_BY_VALUE);
        ka_add_integer(host, -1, KA_BY_REFERENCE);
        const int32_t code = call(host);
        EXPECT_TRUE(code == 3 || rounds == 0) << code;
        EXPECT_EQ(integers(host, 4, 1), std::vector<int32_t>({3 * rounds}));
        EXPECT_EQ(values.size(), static_cast<size_t>(rounds));
    }
}

static ka_host *busy_host;

TEST(CallBackRules, host_is_not_used_inside_its_callback)
{
    Host host([](ka_options &options) {
        options.callback = [](ka_host *inner, int32_t, void *) {
            int32_t code;
            EXPECT_EQ(ka_begin(inner, "add"), KA_ARGUMENT);
            EXPECT_EQ(ka_add_integer(inner, 1, KA_BY_VALUE), KA_ARGUMENT);
            EXPECT_EQ(ka_call(inner, &code), KA_ARGUMENT);
            EXPECT_EQ(ka_close(inner), KA_ARGUMENT);
            EXPECT_NE(ka_scratch(inner, nullptr), nullptr);
            return 12;
        };
    });
    EXPECT_EQ(call_with(host, "ask", 1), 12);
}

TEST(CallBackRules, another_host_can_be_called_inside_a_callback)
{
    Host other;
    busy_host = other;
    Host host([](ka_options &options) {
        options.callback = [](ka_host *, int32_t value, void *) {
            return call_with(busy_host, "give_code", value + 1);
        };
    });
    for (int32_t i = 0; i < 100; i++)
        ASSERT_EQ(call_with(host, "ask", i), i + 1);
}
