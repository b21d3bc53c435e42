// SPDX-License-Identifier: MIT
//
// ka_cancel: ends the call or the start that it meets, tells whether there was one, and leaves nothing behind.
// KA_CANCELS sets how many come at random moments.
#include "caller/in_steps.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "caller/many_calls.h"
#include "caller/waiting.h"
#include "model/draw.h"

namespace {

class Cancels : public LastingHosts {};
IN_EVERY_WAY(Cancels);

// Cancels from another thread until there was something to cancel. It has SIGUSR2 blocked where this one has.
class CancellingThread {
public:
    explicit CancellingThread(ka_host *host, int after_ms = 0)
        : thread_([this, host, after_ms] {
              std::this_thread::sleep_for(std::chrono::milliseconds(after_ms));
              hit_ = becomes_true([host] { return ka_cancel(host) == 1; });
          })
    {
    }
    ~CancellingThread()
    {
        thread_.join();
        EXPECT_TRUE(hit_);
    }
    CancellingThread(const CancellingThread &) = delete;
    CancellingThread &operator=(const CancellingThread &) = delete;

private:
    bool hit_ = false;
    std::thread thread_;
};

} // namespace

// In the call that fails: by a command that hangs the second time.
TEST(Cancel, start_at_once_is_ended_with_its_call)
{
    const File started("", 0600);
    const std::string script =
        "[ -s " + started.path + " ] && exec sleep 60; echo 1 >" + started.path + "; exec \"$0\" \"$@\"";
    const char *const words[] = {"sh", "-c", script.c_str(), nullptr};
    for (const bool retired : {false, true}) {
        Host host([&](ka_options &options) {
            options.under = words;
            options.restart = KA_RESTART_AT_ONCE;
            options.restart_pause_ms = 0;
        });
        const pid_t before = ka_pid(host);
        ka_host *const cancelled = host.host;
        std::thread other([&] {
            EXPECT_TRUE(becomes_true([&] { return ka_pid(cancelled) != 0 && ka_pid(cancelled) != before; }));
            if (retired)
                ka_retire(std::exchange(host.host, nullptr));
            else
                EXPECT_EQ(ka_cancel(cancelled), 1);
        });
        ka_begin(cancelled, "die_by");
        ka_add_integer(cancelled, SIGKILL, KA_BY_VALUE);
        EXPECT_EQ(call_fails(cancelled), KA_CANCELLED);
        other.join();
        EXPECT_EQ(ka_pid(cancelled), 0);
        truncate(started.path.c_str(), 0);
    }
}

TEST_P(Cancels, nothing_is_left_where_no_call_is_under_way)
{
    EXPECT_EQ(ka_cancel(nullptr), 0);
    Host host(layout());
    EXPECT_EQ(ka_cancel(host), 0);
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    EXPECT_EQ(ka_cancel(host), 0);
    ka_begin(host, "give_code");
    ka_add_integer(host, 2, KA_BY_VALUE);
    EXPECT_EQ(ka_cancel(host), 0);
    EXPECT_EQ(call(host), 2);
    ka_begin(host, "give_code");
    EXPECT_EQ(call_fails(host), KA_REFUSED);
    EXPECT_EQ(ka_cancel(host), 0);
    EXPECT_EQ(call_with(host, "give_code", 3), 3);
    ka_begin(host, "fault");
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(ka_cancel(host), 0);
}

// In the first moment of its wait, and after it.
TEST_P(Cancels, call_that_waits_comes_out)
{
    for (int after_ms : {0, 30, 120}) {
        Host host(lasting());
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
        ka_begin(host, "hang");
        {
            const CancellingThread thread(host, after_ms);
            EXPECT_EQ(call_fails(host), KA_CANCELLED);
        }
        EXPECT_EQ(error_text(host), tasks_module + ": a call of \"hang\" was cancelled");
        EXPECT_EQ(ka_last_error(host)->retry, KA_RETRY_UNSURE);
        EXPECT_EQ(ka_cancel(host), 0);
        EXPECT_EQ(call_with(host, "ask", 1), 2);
    }
}

TEST_P(Cancels, step_that_waits_comes_out)
{
    for (int after_ms : {0, 30}) {
        Host host(lasting());
        ka_begin(host, "hang");
        send_begun(host);
        {
            const CancellingThread thread(host, after_ms);
            EXPECT_EQ(step_fails(host), KA_CANCELLED);
        }
        EXPECT_EQ(call_in_steps(host, "ask", 1), 2);
    }
}

TEST_P(Cancels, next_step_finds_it)
{
    for (int32_t timeout_ms : {-1, 1, 0}) {
        Host host(lasting());
        send_call_of(host, "nap", 60000);
        EXPECT_EQ(step_of(host, 1).what, KA_WAITING);
        EXPECT_EQ(ka_cancel(host), 1);
        EXPECT_EQ(ka_cancel(host), 0);
        EXPECT_EQ(step_fails(host, timeout_ms), KA_CANCELLED);
        EXPECT_EQ(step_fails(host), KA_CLOSED);
        EXPECT_EQ(call_in_steps(host, "ask", 1), 2);
    }
}

TEST_P(Cancels, call_that_has_returned_is_cancelled_until_a_step_has_found_it)
{
    Host host(lasting());
    send_call_of(host, "give_code", 1);
    ASSERT_TRUE(becomes_idle(ka_pid(host)));
    EXPECT_EQ(ka_cancel(host), 1);
    EXPECT_EQ(step_fails(host), KA_CANCELLED);
    send_call_of(host, "give_code", 1);
    EXPECT_EQ(step_of(host).what, KA_RETURNED);
    EXPECT_EQ(ka_cancel(host), 0);
    EXPECT_EQ(call_in_steps(host, "ask", 1), 2);
}

TEST_P(Cancels, callback_is_answered_first)
{
    Host host([this](ka_options &options) {
        lasting()(options);
        options.callback = [](ka_host *own, int32_t, void *) { return ka_cancel(own); };
    });
    ka_begin(host, "ask");
    ka_add_integer(host, 7, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_CANCELLED);
    EXPECT_EQ(error_text(host), tasks_module + ": a call-back of \"ask\" was cancelled");
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
}

TEST_P(Cancels, callback_of_a_step_is_ended_by_the_next)
{
    for (bool answers : {true, false}) {
        Host host(lasting());
        send_call_of(host, "ask", 7);
        EXPECT_EQ(step_of(host).what, KA_CALLBACK);
        EXPECT_EQ(ka_cancel(host), 1);
        EXPECT_EQ(answers ? ka_answer(host, 1) : step_fails(host), KA_CANCELLED);
        EXPECT_EQ(call_in_steps(host, "ask", 1), 2);
    }
}

// ---- Starts ----------------------------------------------------------------------------------------------------

TEST_P(Cancels, start_within_a_call_comes_out)
{
    setenv("KA_TEST_SETUP", "naps60000", 1);
    Host host(lasting());
    ka_begin(host, "give_code");
    ka_add_integer(host, 1, KA_BY_VALUE);
    {
        const CancellingThread thread(host, 20);
        EXPECT_EQ(call_fails(host), KA_CANCELLED);
    }
    EXPECT_EQ(ka_last_error(host)->retry, KA_RETRY_YES);
    EXPECT_EQ(error_text(host), tasks_module + ": the start was cancelled");
    unsetenv("KA_TEST_SETUP");
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
}

TEST_P(Cancels, wait_for_the_tables_comes_out)
{
    setenv("KA_TEST_SETUP", "naps60000", 1);
    Host host(lasting());
    {
        const CancellingThread thread(host, 20);
        EXPECT_EQ(ka_host_tables(host), nullptr);
    }
    EXPECT_EQ(ka_last_error(host)->error_class, KA_CANCELLED);
    unsetenv("KA_TEST_SETUP");
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
}

TEST_P(Cancels, pause_before_a_start_comes_out)
{
    Host host([this](ka_options &options) {
        lasting()(options);
        options.restart_pause_ms = 9000;
    });
    ka_begin(host, "fault");
    EXPECT_EQ(call_fails(host), KA_DIED);
    ka_begin(host, "count_call");
    {
        const CancellingThread thread(host, 20);
        EXPECT_EQ(call_fails(host), KA_CANCELLED);
    }
    EXPECT_EQ(error_text(host), tasks_module + ": the pause before a new start was cancelled");
}

// The command never starts the module.
TEST_P(Cancels, open_comes_out)
{
    static const char *const words[] = {"sh", "-c", "sleep 60", nullptr};
    ka_options options = default_options();
    layout()(options);
    options.under = words;
    ka_host *host = nullptr;
    std::thread thread([&] {
        EXPECT_TRUE(becomes_true([&] {
            ka_host *own = __atomic_load_n(&host, __ATOMIC_SEQ_CST);
            return own && ka_cancel(own) == 1;
        }));
    });
    EXPECT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_CANCELLED);
    thread.join();
    EXPECT_EQ(error_text(host), "the start of " + tasks_module + " was cancelled");
    EXPECT_EQ(ka_cancel(host), 0);
    EXPECT_EQ(ka_close(host), KA_DONE);
}

// ---- At random moments -----------------------------------------------------------------------------------------

namespace {

int32_t cancels()
{
    const char *wanted = std::getenv("KA_CANCELS");
    return wanted == nullptr ? 25 : std::atoi(wanted);
}

// A call, whole or in steps, that is cancelled or right.
bool is_whole(ka_host *host, bool steps, int32_t number)
{
    int32_t code = INT32_MIN;
    ka_begin(host, "ask");
    ka_add_integer(host, number, KA_BY_VALUE);
    int32_t status = steps ? ka_send(host) : ka_call(host, &code);
    Step step;
    while (steps && status == KA_DONE && step.what != KA_RETURNED) {
        status = ka_wait(host, -1, &step.what, &step.value);
        if (status == KA_DONE && step.what == KA_CALLBACK) status = ka_answer(host, step.value + 1);
    }
    if (steps) code = step.value;
    EXPECT_TRUE(status == KA_DONE || status == KA_CANCELLED) << status << " " << error_text(host);
    EXPECT_TRUE(status != KA_DONE || code == number + 1) << code << " of call " << number;
    return status == KA_DONE;
}

} // namespace

TEST_P(Cancels, of_another_thread_meet_one_call_or_none)
{
    Host host(lasting());
    model::Draw random;
    EXPECT_EQ(call_with(host, "ask", 1), 2);
    int hits = 0;
    for (int32_t i = 0; i < cancels(); i++) {
        std::atomic<bool> go{false};
        int32_t hit = -1;
        const auto pause = std::chrono::nanoseconds(random.below(60000) >> random.below(8));
        std::thread thread([&] {
            while (!go)
                ;
            const auto until = std::chrono::steady_clock::now() + pause;
            while (std::chrono::steady_clock::now() < until)
                ;
            hit = ka_cancel(host);
        });
        go = true;
        const bool whole = is_whole(host, i % 2 == 1, i);
        thread.join();
        ASSERT_EQ(hit, whole ? 0 : 1) << "call " << i;
        hits += hit;
        ASSERT_TRUE(is_whole(host, i % 2 == 0, i)) << "call after " << i;
    }
    std::cout << hits << " of " << cancels() << " were cancelled" << std::endl;
}

namespace {
ka_host *alarmed;
std::atomic<int32_t> alarm_hit;
} // namespace

TEST_P(Cancels, of_a_signal_handler_meet_one_call_or_none)
{
    Host host(lasting());
    model::Draw random;
    EXPECT_EQ(call_with(host, "ask", 1), 2);
    alarmed = host;
    struct sigaction before;
    struct sigaction action = {};
    action.sa_handler = [](int) { alarm_hit = ka_cancel(alarmed); };
    action.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &action, &before);
    int hits = 0;
    for (int32_t i = 0; i < cancels(); i++) {
        alarm_hit = -1;
        const struct itimerval when = {{0, 0}, {0, 1 + random.below(100)}};
        setitimer(ITIMER_REAL, &when, nullptr);
        const bool whole = is_whole(host, i % 2 == 1, i);
        ASSERT_TRUE(becomes_true([] { return alarm_hit != -1; }));
        ASSERT_EQ(alarm_hit, whole ? 0 : 1) << "call " << i;
        hits += alarm_hit;
        ASSERT_TRUE(is_whole(host, i % 2 == 0, i)) << "call after " << i;
    }
    sigaction(SIGALRM, &before, nullptr);
    std::cout << hits << " of " << cancels() << " were cancelled" << std::endl;
}
