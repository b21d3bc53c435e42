// SPDX-License-Identifier: MIT
//
// Calls in steps, for the tests of them.
#ifndef TESTS_CALLER_IN_STEPS_H
#define TESTS_CALLER_IN_STEPS_H

#include "caller/hosts.h"
#include "caller/many_calls.h"

// Tests of hosts that start again at once, for many calls that end them.
class LastingHosts : public EveryWay {
protected:
    std::function<void(ka_options &)> lasting() const
    {
        return [this](ka_options &options) {
            layout()(options);
            adding_one(options);
            options.restart = KA_RESTART_NEXT_CALL;
            options.restart_pause_ms = 0;
        };
    }
};

// What one ka_wait has stored; the test fails when that has failed.
struct Step {
    int32_t what = -1;
    int32_t value = INT32_MIN;
};

inline Step step_of(ka_host *host, int32_t timeout_ms = -1)
{
    Step step;
    EXPECT_EQ(ka_wait(host, timeout_ms, &step.what, &step.value), KA_DONE) << error_text(host);
    if (step.what == KA_WAITING) {
        EXPECT_EQ(step.value, 0);
    }
    return step;
}

// Class of the error of a step that cannot succeed.
inline int32_t step_fails(ka_host *host, int32_t timeout_ms = -1)
{
    Step step;
    const int32_t error_class = ka_wait(host, timeout_ms, &step.what, &step.value);
    EXPECT_EQ(ka_last_error(host)->error_class, error_class);
    EXPECT_EQ(step.what, error_class == KA_DONE ? step.what : -1);
    EXPECT_EQ(step.value, error_class == KA_DONE ? step.value : INT32_MIN);
    return error_class;
}

inline void send_begun(ka_host *host)
{
    ASSERT_EQ(ka_send(host), KA_DONE) << error_text(host);
}

// A function with one integer.
inline void send_call_of(ka_host *host, const char *function, int32_t number)
{
    ka_begin(host, function);
    ka_add_integer(host, number, KA_BY_VALUE);
    send_begun(host);
}

inline void answer_step(ka_host *host, int32_t answer)
{
    EXPECT_EQ(ka_answer(host, answer), KA_DONE) << error_text(host);
}

// The rest of a call that was sent, with waits of that length; call-backs get one more than their value. Its return
// code.
inline int32_t take_steps(ka_host *host, int32_t timeout_ms = -1)
{
    for (;;) {
        const Step step = step_of(host, timeout_ms);
        if (step.what == KA_RETURNED) return step.value;
        if (step.what == KA_CALLBACK) answer_step(host, step.value + 1);
        if (step.what != KA_CALLBACK && step.what != KA_WAITING) return INT32_MIN;
    }
}

inline int32_t call_in_steps(ka_host *host, const char *function, int32_t number, int32_t timeout_ms = -1)
{
    send_call_of(host, function, number);
    return take_steps(host, timeout_ms);
}

#endif
