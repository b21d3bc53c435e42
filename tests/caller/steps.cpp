// SPDX-License-Identifier: MIT
//
// Calls in steps: the same as ka_call, which is the loop over them, with waits that the program can leave.
#include "caller/in_steps.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <optional>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "caller/many_calls.h"
#include "caller/storm.h"
#include "caller/waiting.h"

namespace {

class Steps : public EveryWay {
protected:
    // The values at these offsets never change in the block, so no reply can be told by them.
    void begin_unseen(ka_host *host, const char *function, int32_t rounds) const
    {
        ka_begin(host, function);
        ka_add_integer(host, offset_of_cbval(), KA_BY_VALUE);
        ka_add_integer(host, offset_of_retcode(), KA_BY_VALUE);
        ka_add_integer(host, rounds, KA_BY_VALUE);
        ka_add_integer(host, 0, KA_BY_REFERENCE);
    }
};
IN_EVERY_WAY(Steps);

constexpr int32_t timeouts[] = {-1, 1000, 1, 0};

// A timer that interrupts this program again and again, with a handler that only counts.
class Interruptions {
public:
    Interruptions(suseconds_t us, int flags)
    {
        count = 0;
        struct sigaction action = {};
        action.sa_handler = [](int) { count = count + 1; };
        action.sa_flags = flags;
        sigaction(SIGALRM, &action, &before_);
        set(us);
    }
    ~Interruptions()
    {
        set(0);
        sigaction(SIGALRM, &before_, nullptr);
    }
    static inline volatile sig_atomic_t count;

private:
    static void set(suseconds_t us)
    {
        const struct itimerval when = {{0, us}, {0, us}};
        setitimer(ITIMER_REAL, &when, nullptr);
    }
    struct sigaction before_;
};

} // namespace

// ---- The same as ka_call ---------------------------------------------------------------------------------------

TEST_P(Steps, call_returns_its_code_and_results)
{
    Host host(layout());
    for (int32_t i = 0; i < 50; i++) {
        ka_begin(host, "add");
        ka_add_integer(host, i, KA_BY_VALUE);
        ka_add_integer(host, 40, KA_BY_VALUE);
        ka_add_integer(host, 0, KA_BY_REFERENCE);
        send_begun(host);
        ASSERT_EQ(take_steps(host), 0);
        ASSERT_EQ(integers(host, 3, 1), std::vector<int32_t>{i + 40});
    }
}

TEST_P(Steps, callbacks_are_delivered_and_answered)
{
    Host host(layout());
    for (int32_t timeout_ms : timeouts) {
        for (int32_t i = 0; i < 20; i++)
            ASSERT_EQ(call_in_steps(host, "ask", i, timeout_ms), i + 1) << "timeout " << timeout_ms;
        ka_begin(host, "ask_many");
        ka_add_integer(host, 20, KA_BY_VALUE);
        ka_add_integer(host, 0, KA_BY_REFERENCE);
        send_begun(host);
        ASSERT_EQ(take_steps(host, timeout_ms), 0);
        ASSERT_EQ(integers(host, 2, 1), std::vector<int32_t>{20 * 21 / 2});
    }
}

TEST_P(Steps, replies_that_change_nothing_in_the_block_are_found)
{
    Host host(layout());
    for (int32_t timeout_ms : timeouts) {
        int32_t callbacks = 0;
        begin_unseen(host, "ask_unseen", 3);
        send_begun(host);
        Step step = step_of(host, timeout_ms);
        for (; step.what != KA_RETURNED; step = step_of(host, timeout_ms)) {
            if (step.what != KA_CALLBACK) continue;
            callbacks++;
            answer_step(host, 11);
        }
        EXPECT_EQ(callbacks, 3) << "timeout " << timeout_ms;
        EXPECT_EQ(step.value, 11);
        EXPECT_EQ(integers(host, 4, 1), std::vector<int32_t>{33});
    }
}

// These are also the codes of a refusal that a foreign signal brings about.
TEST_P(Steps, codes_of_refusals_are_delivered_as_any_other)
{
    Host host(layout());
    for (int32_t timeout_ms : timeouts)
        for (int32_t code : {8, 9, 0, -1})
            EXPECT_EQ(call_in_steps(host, "give_code", code, timeout_ms), code) << "timeout " << timeout_ms;
}

TEST_P(Steps, function_that_runs_again_calls_back_again)
{
    for (int32_t timeout_ms : timeouts) {
        Host host(layout());
        EXPECT_EQ(call_in_steps(host, "ask_again", 5, timeout_ms), 7);
        EXPECT_EQ(call_in_steps(host, "ask", 5, timeout_ms), 6);
    }
}

TEST_P(Steps, callback_of_the_options_is_for_ka_call_alone)
{
    Host host([this](ka_options &options) {
        layout()(options);
        options.callback = [](ka_host *, int32_t value, void *) { return value + 100; };
    });
    for (int32_t i = 0; i < 20; i++) {
        EXPECT_EQ(call_in_steps(host, "ask", i), i + 1);
        EXPECT_EQ(call_with(host, "ask", i), i + 100);
    }
}

TEST_P(Steps, foreign_signals_change_no_result)
{
    auto *before = std::signal(SIGUSR2, [](int) {});
    {
        Host host(layout());
        EXPECT_EQ(call_in_steps(host, "ask", 1), 2);
        const Storm at_caller(getpid(), 200);
        std::optional<Storm> at_host;
        if (default_options().transport != KA_TRANSPORT_PLAIN) at_host.emplace(ka_pid(host), 200);
        for (int32_t timeout_ms : timeouts)
            for (int32_t i = 0; i < 30; i++)
                ASSERT_EQ(call_in_steps(host, "ask", i, timeout_ms), i + 1) << "timeout " << timeout_ms;
    }
    std::signal(SIGUSR2, before);
}

// ---- Errors ----------------------------------------------------------------------------------------------------

TEST_P(Steps, refused_call_is_not_sent)
{
    Host host(layout());
    ka_begin(host, "give_code");
    EXPECT_EQ(ka_send(host), KA_REFUSED);
    EXPECT_EQ(step_fails(host), KA_ARGUMENT);
    EXPECT_EQ(call_in_steps(host, "give_code", 3), 3);
}

TEST_P(Steps, death_of_the_host_is_found)
{
    for (int32_t timeout_ms : timeouts) {
        Host host([this](ka_options &options) {
            layout()(options);
            options.restart = KA_RESTART_NEXT_CALL;
            options.restart_pause_ms = 0;
        });
        EXPECT_EQ(call_in_steps(host, "ask", 1, timeout_ms), 2);
        send_call_of(host, "die_by", SIGKILL);
        int32_t error_class = KA_DONE;
        EXPECT_TRUE(becomes_true([&] { return (error_class = step_fails(host, timeout_ms)) != KA_DONE; }));
        EXPECT_EQ(error_class, KA_DIED);
        EXPECT_EQ(ka_last_error(host)->retry, KA_RETRY_UNSURE);
        EXPECT_EQ(ka_last_error(host)->signal, SIGKILL);
        EXPECT_EQ(call_in_steps(host, "ask", 1, timeout_ms), 2);
    }
}

TEST_P(Steps, deadline_counts_from_the_first_step)
{
    for (int32_t timeout_ms : timeouts) {
        Host host(layout());
        EXPECT_EQ(call_in_steps(host, "ask", 1, timeout_ms), 2);
        ka_set_deadline(host, 150);
        const auto began = std::chrono::steady_clock::now();
        send_call_of(host, "nap", 60000);
        ka_set_deadline(host, 60000);
        int32_t error_class = KA_DONE;
        EXPECT_TRUE(becomes_true([&] { return (error_class = step_fails(host, timeout_ms)) != KA_DONE; }));
        EXPECT_EQ(error_class, KA_DEADLINE);
        EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(150));
        EXPECT_EQ(error_text(host), tasks_module + ": a call of \"nap\" took more than 150 ms");
    }
}

TEST_P(Steps, answer_after_the_deadline_ends_the_call)
{
    Host host(layout());
    ka_set_deadline(host, 150);
    send_call_of(host, "ask", 1);
    EXPECT_EQ(step_of(host).what, KA_CALLBACK);
    std::this_thread::sleep_for(std::chrono::milliseconds(160));
    EXPECT_EQ(ka_answer(host, 1), KA_DEADLINE);
    EXPECT_EQ(error_text(host), tasks_module + ": a call-back of \"ask\" took more than 150 ms");
}

TEST_P(Steps, wait_takes_no_timeout_below_minus_one)
{
    Host host(layout());
    send_call_of(host, "give_code", 4);
    EXPECT_EQ(step_fails(host, -2), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "timeout_ms is -2; it must not be below -1");
    EXPECT_EQ(take_steps(host), 4);
}

// ---- Waits that are left ---------------------------------------------------------------------------------------

TEST_P(Steps, wait_ends_with_its_time)
{
    Host host(layout());
    for (int32_t timeout_ms : {0, 2, 20}) {
        send_call_of(host, "nap", 100);
        const auto began = std::chrono::steady_clock::now();
        EXPECT_EQ(step_of(host, timeout_ms).what, KA_WAITING);
        EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(timeout_ms));
        EXPECT_EQ(take_steps(host), 0);
    }
}

// In the first moment of a wait, and after it.
TEST_P(Steps, wait_is_interrupted_by_a_handler)
{
    Host host(layout());
    for (int flags : {0, SA_RESTART}) {
        for (suseconds_t us : {1500, 20000}) {
            send_call_of(host, "nap", 200);
            const Interruptions interruptions(us, flags);
            EXPECT_EQ(step_of(host).what, KA_WAITING);
            EXPECT_GT(Interruptions::count, 0);
            EXPECT_EQ(take_steps(host), 0);
        }
    }
}

TEST_P(Steps, call_as_a_whole_goes_on_after_handlers)
{
    Host host(layout());
    const Interruptions interruptions(1500, 0);
    EXPECT_EQ(call_with(host, "nap", 100), 0);
    EXPECT_GT(Interruptions::count, 5);
}

TEST_P(Steps, calls_are_right_between_interruptions)
{
    Host host(layout());
    const Interruptions interruptions(300, SA_RESTART);
    for (int32_t i = 0; i < 200; i++)
        ASSERT_EQ(call_in_steps(host, "ask", i), i + 1);
}

// With KA_WAIT_FAST they have SIGUSR2 blocked, as the thread has that opened the host.
TEST_P(Steps, steps_can_be_taken_by_different_threads)
{
    Host host(layout());
    for (int32_t i = 0; i < 10; i++) {
        std::thread([&] { send_call_of(host, "ask", i); }).join();
        Step step;
        std::thread([&] { step = step_of(host); }).join();
        ASSERT_EQ(step.what, KA_CALLBACK);
        std::thread([&] { answer_step(host, step.value + 1); }).join();
        std::thread([&] { step = step_of(host, 1); }).join();
        if (step.what == KA_WAITING) step = step_of(host);
        ASSERT_EQ(step.what, KA_RETURNED);
        ASSERT_EQ(step.value, i + 1);
    }
}

TEST_P(Steps, reply_that_comes_between_them_is_found)
{
    Host host(layout());
    for (int32_t timeout_ms : timeouts) {
        send_call_of(host, "nap", 10);
        EXPECT_EQ(step_of(host, 0).what, KA_WAITING);
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        EXPECT_EQ(take_steps(host, timeout_ms), 0);
    }
}

TEST_P(Steps, program_may_use_the_scratch_area_and_the_trace_level_in_a_callback)
{
    Host host(layout());
    int32_t size = 0;
    send_call_of(host, "ask", 1);
    EXPECT_EQ(step_of(host).what, KA_CALLBACK);
    EXPECT_NE(ka_scratch(host, &size), nullptr);
    EXPECT_EQ(ka_set_trace(host, 0), KA_DONE) << error_text(host);
    EXPECT_NE(ka_host_tables(host), nullptr);
    answer_step(host, 2);
    EXPECT_EQ(take_steps(host), 2);
}

TEST_P(Steps, child_of_fork_leaves_the_call_to_its_parent)
{
    Host host(layout());
    send_call_of(host, "ask", 1);
    EXPECT_EQ(step_of(host).what, KA_CALLBACK);
    const pid_t child = fork();
    if (child == 0) {
        Step step;
        const bool ended = ka_answer(host, 1) == KA_CLOSED && ka_wait(host, -1, &step.what, &step.value) == KA_CLOSED;
        _exit(ended && ka_cancel(host) == 0 && ka_close(host.host) == KA_DONE ? 0 : 1);
    }
    int status = 1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    answer_step(host, 2);
    EXPECT_EQ(take_steps(host), 2);
}

// ---- System calls ----------------------------------------------------------------------------------------------

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // which make some of their own
namespace {

constexpr int rounds = 40;

// Of this thread, which is traced: one before each round, and one after the last.
void mark_round()
{
    syscall(SYS_getppid);
}

void make_calls(const std::function<void(ka_options &)> &adjust, bool steps)
{
    Host host([&](ka_options &options) {
        adjust(options);
        adding_one(options);
    });
    call_with(host, "nap", 2);
    for (int32_t i = 0; i < rounds; i++) {
        mark_round();
        EXPECT_EQ(steps ? call_in_steps(host, "nap", 2) : call_with(host, "nap", 2), 0);
    }
    mark_round();
}

// The usual number of system calls in a round of a child that makes the calls. (On a busy machine a reply can be
// there before the thread sleeps, or come late.)
int usual_system_calls(const std::function<void(ka_options &)> &adjust, bool steps)
{
    const pid_t child = fork();
    if (child == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        make_calls(adjust, steps);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    std::vector<int> counts;
    int count = -1; // before the first round
    int round = 0;
    long signal = 0;
    for (;;) {
        ptrace(PTRACE_SYSCALL, child, nullptr, signal);
        if (waitpid(child, &status, 0) == -1 || WIFEXITED(status) || WIFSIGNALED(status)) break;
        signal = WSTOPSIG(status) == (SIGTRAP | 0x80) ? 0 : WSTOPSIG(status);
        __ptrace_syscall_info info = {};
        if (signal != 0 || ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info) == -1 ||
            info.op != PTRACE_SYSCALL_INFO_ENTRY)
            continue;
        if (info.entry.nr != SYS_getppid) {
            count += round > 0 ? 1 : 0;
            continue;
        }
        if (round++ > 0) counts.push_back(count);
        count = 0;
    }
    EXPECT_EQ(status, 0);
    EXPECT_EQ(round, rounds + 1);
    if (counts.size() != rounds) return -1;
    std::sort(counts.begin(), counts.end());
    return counts[rounds / 2];
}

} // namespace

// Of calls whose reply comes after the thread has fallen asleep.
TEST_P(Steps, make_as_many_system_calls_as_the_call_as_a_whole)
{
    for (int32_t transport : {KA_TRANSPORT_SIGNALS, KA_TRANSPORT_PLAIN}) {
        const auto adjust = [&](ka_options &options) {
            layout()(options);
            options.transport = transport;
        };
        const int whole = usual_system_calls(adjust, false);
        EXPECT_EQ(usual_system_calls(adjust, true), whole) << "transport " << transport;
        EXPECT_GT(whole, 0);
    }
}
#endif
