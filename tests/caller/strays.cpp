// SPDX-License-Identifier: MIT
//
// SIGUSR2 that neither side sent: at the caller and at the host.
#include "caller/hosts.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>
#include <unistd.h>
#include <utility>

#include "caller/storm.h"

class Strays : public EveryWay {};
IN_EVERY_WAY(Strays);

TEST_P(Strays, at_the_caller_before_a_call_change_nothing)
{
    Host host(layout());
    for (int32_t i = 0; i < 200; i++) {
        raise(SIGUSR2);
        ASSERT_EQ(call_with(host, "give_code", i), i);
    }
}

TEST_P(Strays, at_the_caller_before_a_call_make_no_reply_of_what_the_function_writes)
{
    Host host([this](ka_options &options) {
        layout()(options);
        options.transport = KA_TRANSPORT_PLAIN;
    });
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    raise(SIGUSR2);
    EXPECT_EQ(call_with(host, "pretend_to_sleeper", offset_of_retcode()), 78);
    EXPECT_EQ(call_with(host, "give_code", 2), 2);
}

TEST_P(Strays, at_the_caller_after_the_last_call_do_not_kill_it)
{
    Host host(layout());
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    raise(SIGUSR2);
}

// The host is dead, so that the wait for its end takes one of the two at most.
TEST_P(Strays, at_the_caller_beside_the_last_reply_do_not_kill_it)
{
    Host host(layout());
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    const pid_t pid = ka_pid(host);
    kill(pid, SIGKILL);
    ASSERT_TRUE(ends(pid));
    sigset_t set;
    sigset_t before;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR2);
    if (std::get<1>(GetParam()) == KA_WAIT_SAFE) pthread_sigmask(SIG_BLOCK, &set, &before);
    pthread_kill(pthread_self(), SIGUSR2);
    kill(getpid(), SIGUSR2);
    EXPECT_EQ(ka_close(std::exchange(host.host, nullptr)), KA_DONE);
    if (std::get<1>(GetParam()) == KA_WAIT_SAFE) pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_P(Strays, at_the_caller_in_every_exchange_cause_no_wrong_verdict)
{
    int32_t asked = 0;
    Host host([&](ka_options &options) {
        layout()(options);
        options.user = &asked;
        options.callback = [](ka_host *, int32_t, void *user) { return ++*static_cast<int32_t *>(user); };
    });
    const Storm storm(getpid());
    for (int32_t i = 0; i < 300; i++) {
        ASSERT_EQ(call_with(host, "give_code", i % 20), i % 20);
        asked = 0;
        ka_begin(host, "ask_unseen");
        ka_add_integer(host, offset_of_cbval(), KA_BY_VALUE);
        ka_add_integer(host, offset_of_retcode(), KA_BY_VALUE);
        ka_add_integer(host, 3, KA_BY_VALUE);
        ka_add_integer(host, -1, KA_BY_REFERENCE);
        ASSERT_EQ(call(host), 3);
        ASSERT_EQ(integers(host, 4, 1), std::vector<int32_t>({1 + 2 + 3}));
        ASSERT_EQ(asked, 3);
    }
}

TEST_P(Strays, at_the_caller_while_the_function_sleeps_do_not_end_the_call)
{
    Host host(layout());
    const Storm storm(getpid());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(call_with(host, "nap", 200), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
}

// The host answers each with a refusal, for there is no call in the block. The function counts its calls, so that a
// repeated one is noticed.
TEST_P(Strays, at_an_idle_host_repeat_no_call)
{
    Host host(layout());
    for (int32_t i = 1; i <= 100; i++) {
        ka_begin(host, "count_call");
        ASSERT_EQ(call(host), i);
        ASSERT_TRUE(becomes_idle(ka_pid(host)));
        kill(ka_pid(host), SIGUSR2);
        ASSERT_TRUE(becomes_idle(ka_pid(host)));
    }
}

// At the very moment of a call the host may take the stray signal for the call's own, and perform the call again for
// the call's own; but what it replies to a stray one is never taken for the answer of the call.
TEST_P(Strays, at_a_host_that_is_being_called_give_no_wrong_answer)
{
    Host host(layout());
    for (int32_t i = 0; i < 3000; i++) {
        kill(ka_pid(host), SIGUSR2);
        for (int32_t spin = 0; spin < i % 100 * 50; spin++)
            asm volatile("");
        ASSERT_EQ(call_with(host, "give_code", 4711), 4711);
    }
}

// The host performs the call again. Neither its second reply nor its second result may get into the next call.
TEST_P(Strays, at_a_host_inside_a_function_do_not_reach_the_next_call)
{
    Host host(layout());
    for (int32_t i = 0; i < 10; i++) {
        std::thread stray([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            kill(ka_pid(host), SIGUSR2);
        });
        EXPECT_EQ(call_with(host, "nap", 20), 0);
        EXPECT_EQ(call_with(host, "give_code", 4711 + i), 4711 + i);
        stray.join();
        if (HasFailure()) return;
    }
}

// The second performance calls back when the call has had its answer already. With the fast transport the host takes
// the signal when it has waited in vain for another call, mostly too late for a second performance.
TEST_P(Strays, at_a_host_inside_a_function_that_calls_back_hold_nobody_up)
{
    bool came_in_time = false; // before argc was taken back
    for (int32_t i = 0; i < 5 || (!came_in_time && i < 500 && default_options().transport != KA_TRANSPORT_FAST);
         i++) {
        int32_t asked = 0;
        Host host([&](ka_options &options) {
            layout()(options);
            options.user = &asked;
            options.callback = [](ka_host *, int32_t value, void *user) {
                ++*static_cast<int32_t *>(user);
                return value;
            };
        });
        EXPECT_EQ(call_with(host, "ask_again", i), i + 1);
        EXPECT_EQ(call_with(host, "give_code", 4711), 4711);
        came_in_time |= asked > 1;
        if (HasFailure()) return;
    }
    EXPECT_TRUE(came_in_time || default_options().transport == KA_TRANSPORT_FAST);
}

static void begin_early_reply(ka_host *host, int32_t offset_of_retcode, int32_t ms)
{
    ka_begin(host, "reply_early");
    ka_add_integer(host, offset_of_retcode, KA_BY_VALUE);
    ka_add_integer(host, ms, KA_BY_VALUE);
}

// As with a second performance that a foreign signal has asked for: the call has its answer, and the host is not
// idle.
TEST_P(Strays, at_a_host_that_never_comes_to_rest_again_end_the_call_at_its_deadline)
{
    Host host([this](ka_options &options) {
        layout()(options);
        options.grace_ms = 10;
        options.transport = KA_TRANSPORT_PLAIN;
    });
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    ka_set_deadline(host, 1000);
    begin_early_reply(host, offset_of_retcode(), 0);
    EXPECT_EQ(call_fails(host), KA_DEADLINE);
    EXPECT_NE(error_text(host).find("was made to run again by a foreign SIGUSR2"), std::string::npos)
        << error_text(host);
}

TEST_P(Strays, at_a_host_that_dies_after_its_answer_leave_the_answer)
{
    Host host([this](ka_options &options) {
        layout()(options);
        options.deadline_ms = 10000;
        options.transport = KA_TRANSPORT_PLAIN;
    });
    begin_early_reply(host, offset_of_retcode(), 100);
    EXPECT_EQ(call(host), 77);
    ka_begin(host, "count_call");
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(ka_last_error(host)->signal, SIGKILL);
}

// With a number that it does not have.
TEST_P(Strays, a_reply_that_the_module_makes_up_is_none)
{
    Host host([this](ka_options &options) {
        layout()(options);
        options.transport = KA_TRANSPORT_SIGNALS;
    });
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    begin_early_reply(host, offset_of_retcode(), 100);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(ka_last_error(host)->signal, SIGKILL);
}

TEST_P(Strays, refusal_of_a_call_is_believed_when_it_is_the_calls_own)
{
    Host host([this](ka_options &options) {
        layout()(options);
        options.checking = KA_RAW;
    });
    for (int32_t i = 0; i < 200; i++) {
        if (i % 2 == 0) kill(ka_pid(host), SIGUSR2);
        ka_begin(host, "add");
        ASSERT_EQ(call(host), KA_WRONG_COUNT);
        ASSERT_EQ(call_with(host, "give_code", KA_WRONG_TYPE), KA_WRONG_TYPE);
        ASSERT_EQ(call_with(host, "give_code", KA_WRONG_COUNT), KA_WRONG_COUNT);
    }
}
