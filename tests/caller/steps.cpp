// SPDX-License-Identifier: MIT
//
// Calls in steps: the same as ka_call, which is the loop over them, with waits that the program can leave.
#include "caller/many_calls.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

#include "caller/waiting.h"

namespace {

class Steps : public EveryWay {};
IN_EVERY_WAY(Steps);

// One ka_wait; the test fails when that does.
struct Waited {
    int32_t what = -1;
    int32_t value = INT32_MIN;
};

Waited step_of(ka_host *host, int32_t timeout_ms = -1)
{
    Waited waited;
    EXPECT_EQ(ka_wait(host, timeout_ms, &waited.what, &waited.value), KA_DONE) << error_text(host);
    return waited;
}

void begin_with(ka_host *host, const char *function, int32_t number)
{
    ka_begin(host, function);
    ka_add_integer(host, number, KA_BY_VALUE);
}

void send_with(ka_host *host, const char *function, int32_t number)
{
    begin_with(host, function, number);
    ASSERT_EQ(ka_send(host), KA_DONE) << error_text(host);
}

void answer_with(ka_host *host, int32_t value)
{
    EXPECT_EQ(ka_answer(host, value), KA_DONE) << error_text(host);
}

// The rest of a call that was sent, with waits of that length; its return code.
int32_t finish_steps(ka_host *host, int32_t timeout_ms = -1)
{
    for (;;) {
        const Waited waited = step_of(host, timeout_ms);
        if (waited.what == KA_RETURNED) return waited.value;
        if (waited.what == KA_CALLBACK) answer_with(host, waited.value + 1);
        if (waited.what != KA_CALLBACK && waited.what != KA_WAITING) return INT32_MIN;
    }
}

int32_t in_steps(ka_host *host, const char *function, int32_t number, int32_t timeout_ms = -1)
{
    send_with(host, function, number);
    return finish_steps(host, timeout_ms);
}

} // namespace

TEST_P(Steps, call_returns_its_code_and_results)
{
    Host host(layout());
    for (int32_t i = 0; i < 100; i++) {
        ka_begin(host, "add");
        ka_add_integer(host, i, KA_BY_VALUE);
        ka_add_integer(host, 40, KA_BY_VALUE);
        ka_add_integer(host, 0, KA_BY_REFERENCE);
        ASSERT_EQ(ka_send(host), KA_DONE) << error_text(host);
        ASSERT_EQ(finish_steps(host), 0);
        ASSERT_EQ(integers(host, 3, 1), std::vector<int32_t>{i + 40});
    }
}

TEST_P(Steps, callbacks_are_delivered_and_answered)
{
    Host host(layout());
    for (int32_t timeout_ms : {-1, 1000, 1, 0}) {
        for (int32_t i = 0; i < 50; i++)
            ASSERT_EQ(in_steps(host, "ask", i, timeout_ms), i + 1) << "timeout " << timeout_ms;
        ka_begin(host, "ask_many");
        ka_add_integer(host, 20, KA_BY_VALUE);
        ka_add_integer(host, 0, KA_BY_REFERENCE);
        ASSERT_EQ(ka_send(host), KA_DONE) << error_text(host);
        ASSERT_EQ(finish_steps(host, timeout_ms), 0);
        ASSERT_EQ(integers(host, 2, 1), std::vector<int32_t>{20 * 21 / 2});
    }
}
