// SPDX-License-Identifier: MIT
//
// The host dies, or does not answer: in a call, between calls, in a call-back.
#include "caller/hosts.h"

#include <chrono>
#include <csignal>
#include <sys/eventfd.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "caller/waiting.h"

// The host is gone, its zombie too, and the segment is the caller's alone, until it is closed.
struct Remains {
    explicit Remains(ka_host *host) : pid(ka_pid(host)), segment(segment_of(pid)) {}
    void expect_none() const
    {
        EXPECT_EQ(kill(pid, 0), -1) << "process " << pid << " is left";
        EXPECT_TRUE(becomes_true([this] { return users_of(segment) == 1; })) << "segment " << segment << " is used";
    }
    pid_t pid;
    int segment;
};

static std::string died(const std::string &how)
{
    return tasks_module + ": the host " + how;
}

class HostDeath : public EveryWay {};
IN_EVERY_WAY(HostDeath);

TEST_P(HostDeath, by_signal_in_a_call_is_told)
{
    const struct {
        int signal;
        const char *text;
    } cases[] = {{SIGKILL, "was killed by SIGKILL (Killed)"},
                 {SIGSEGV, "was killed by SIGSEGV (Segmentation fault)"},
                 {SIGABRT, "was killed by SIGABRT (Aborted)"}};
    for (const auto &[signal, text] : cases) {
        Host host(layout());
        const Remains remains(host);
        ka_begin(host, "die_by");
        ka_add_integer(host, signal, KA_BY_VALUE);
        EXPECT_EQ(call_fails(host), KA_DIED);
        EXPECT_EQ(error_text(host), died(text) + " in a call of \"die_by\"");
        EXPECT_EQ(ka_last_error(host)->signal, signal);
        EXPECT_EQ(ka_last_error(host)->exit_status, -1);
        remains.expect_none();
    }
}

TEST_P(HostDeath, by_fault_in_a_later_call_is_told)
{
    Host host(layout());
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    ka_begin(host, "fault");
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(error_text(host), died("was killed by SIGSEGV (Segmentation fault) in a call of \"fault\""));
}

TEST_P(HostDeath, by_exit_in_a_call_is_told)
{
    Host host(layout());
    const Remains remains(host);
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    ka_begin(host, "leave");
    ka_add_integer(host, 3, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(error_text(host), died("ended with status 3 in a call of \"leave\""));
    EXPECT_EQ(ka_last_error(host)->exit_status, 3);
    remains.expect_none();
}

TEST(HostDeathRules, exit_status_2_after_an_answer_is_no_failed_start)
{
    Host host;
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    ka_begin(host, "leave");
    ka_add_integer(host, 2, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_DIED);
}

TEST_P(HostDeath, between_calls_is_told_by_the_next_call)
{
    for (int signal : {SIGKILL, SIGTERM}) {
        Host host(layout());
        const Remains remains(host);
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
        kill(remains.pid, signal);
        ASSERT_TRUE(ends(remains.pid));
        ka_begin(host, "give_code");
        ka_add_integer(host, 1, KA_BY_VALUE);
        EXPECT_EQ(call_fails(host), KA_DIED);
        EXPECT_EQ(error_text(host), died(signal == SIGKILL ? "was killed by SIGKILL (Killed) between calls"
                                                           : "ended with status 0 between calls"));
        remains.expect_none();
    }
}

TEST_P(HostDeath, in_a_callback_is_told)
{
    for (int signal : {SIGKILL, SIGSEGV}) {
        Host host([&](ka_options &options) {
            layout()(options);
            options.user = &signal;
            options.callback = [](ka_host *inner, int32_t, void *user) {
                kill(ka_pid(inner), *static_cast<int *>(user));
                EXPECT_TRUE(ends(ka_pid(inner)));
                return 1;
            };
        });
        const Remains remains(host);
        ka_begin(host, "ask");
        ka_add_integer(host, 1, KA_BY_VALUE);
        EXPECT_EQ(call_fails(host), KA_DIED);
        EXPECT_EQ(ka_last_error(host)->signal, signal);
        EXPECT_NE(error_text(host).find(" in a call-back of \"ask\""), std::string::npos) << error_text(host);
        remains.expect_none();
    }
}

TEST_P(HostDeath, after_a_signal_that_replied_nothing_is_told)
{
    Host host(layout());
    const Remains remains(host);
    ka_begin(host, "ring_and_die");
    EXPECT_EQ(call_fails(host), KA_DIED);
    remains.expect_none();
}

TEST(HostDeathRules, ended_host_is_closed_to_everything)
{
    Host host;
    int32_t value;
    ka_begin(host, "leave");
    ka_add_integer(host, 3, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(ka_begin(host, "add"), KA_CLOSED);
    EXPECT_EQ(error_text(host), tasks_module + ": the host has ended");
    EXPECT_EQ(ka_add_integer(host, 1, KA_BY_VALUE), KA_CLOSED);
    EXPECT_EQ(call_fails(host), KA_CLOSED);
    EXPECT_EQ(ka_get_integers(host, 1, &value, 1), KA_CLOSED);
    EXPECT_EQ(ka_gives_back(host, 1), 0);
    EXPECT_EQ(ka_pid(host), 0);
}

TEST(HostDeathRules, cause_is_unknown_when_the_program_ignores_its_children)
{
    struct sigaction ignore = {};
    struct sigaction before;
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGCHLD, &ignore, &before);
    {
        Host host;
        const Remains remains(host);
        ka_begin(host, "leave");
        ka_add_integer(host, 3, KA_BY_VALUE);
        EXPECT_EQ(call_fails(host), KA_DIED);
        EXPECT_EQ(ka_last_error(host)->exit_status, -1);
        EXPECT_NE(error_text(host).find("how is not known"), std::string::npos) << error_text(host);
        remains.expect_none();
    }
    sigaction(SIGCHLD, &before, nullptr);
}

// ---- Clean-up --------------------------------------------------------------------------------------------------

// Makes alarms interrupt whatever waits, as long as it lives.
struct Alarms {
    Alarms()
    {
        struct sigaction count = {};
        count.sa_handler = [](int) { alarms = alarms + 1; };
        alarms = 0;
        sigaction(SIGALRM, &count, &before);
        const struct itimerval often = {{0, 5000}, {0, 5000}};
        setitimer(ITIMER_REAL, &often, nullptr);
    }
    ~Alarms()
    {
        const struct itimerval never = {};
        setitimer(ITIMER_REAL, &never, nullptr);
        sigaction(SIGALRM, &before, nullptr);
        EXPECT_GT(alarms, 1);
    }
    static volatile sig_atomic_t alarms;
    struct sigaction before;
};
volatile sig_atomic_t Alarms::alarms;

// A file that the module makes at the end of its clean-up, which takes a while.
struct CleanUp {
    CleanUp() : file("", 0600)
    {
        unlink(file.path.c_str());
        setenv("KA_TEST_CLEANUP", file.path.c_str(), 1);
    }
    ~CleanUp() { unsetenv("KA_TEST_CLEANUP"); }
    bool done() const { return access(file.path.c_str(), F_OK) == 0; }
    File file;
};

TEST(CleanUpOfTheModule, is_waited_for_at_close_whatever_interrupts)
{
    const CleanUp clean_up;
    {
        Host host([](ka_options &options) { options.grace_ms = 60000; });
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
        const Alarms alarms;
        EXPECT_EQ(ka_close(std::exchange(host.host, nullptr)), KA_DONE);
    }
    EXPECT_TRUE(clean_up.done());
}

TEST(CleanUpOfTheModule, runs_in_a_host_that_was_stopped)
{
    const CleanUp clean_up;
    {
        Host host([](ka_options &options) { options.grace_ms = 60000; });
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
        kill(ka_pid(host), SIGSTOP);
    }
    EXPECT_TRUE(clean_up.done());
}

TEST(CleanUpOfTheModule, runs_after_a_passed_deadline)
{
    const CleanUp clean_up;
    Host host([](ka_options &options) {
        options.deadline_ms = 1000;
        options.grace_ms = 60000;
    });
    ASSERT_TRUE(becomes_idle(ka_pid(host)));
    ka_begin(host, "hang");
    EXPECT_EQ(call_fails(host), KA_DEADLINE);
    EXPECT_TRUE(clean_up.done());
}

// ---- Deadlines and cancellation --------------------------------------------------------------------------------

// The program's own function took the time: the call is over before its answer is sent.
TEST_P(HostDeath, is_what_a_late_answer_to_a_callback_costs)
{
    Host host([this](ka_options &options) {
        layout()(options);
        options.callback = [](ka_host *, int32_t value, void *) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2000));
            return value;
        };
    });
    const Remains remains(host);
    EXPECT_EQ(call_with(host, "give_code", 1), 1); // the start needs its time, too
    ka_set_deadline(host, 2000);
    ka_begin(host, "ask");
    ka_add_integer(host, 1, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_DEADLINE);
    EXPECT_EQ(error_text(host), tasks_module + ": a call-back of \"ask\" took more than 2000 ms");
    remains.expect_none();
}

TEST_P(HostDeath, is_what_a_passed_deadline_costs)
{
    for (const char *function : {"hang", "hang_deaf"}) {
        Host host([this](ka_options &options) {
            layout()(options);
            options.grace_ms = 100;
        });
        const Remains remains(host);
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
        ka_set_deadline(host, 1000);
        ka_begin(host, function);
        EXPECT_EQ(call_fails(host), KA_DEADLINE);
        EXPECT_EQ(error_text(host), tasks_module + ": a call of \"" + function + "\" took more than 1000 ms");
        EXPECT_EQ(ka_begin(host, "add"), KA_CLOSED);
        remains.expect_none();
    }
}

TEST(Deadline, covers_the_callbacks_of_a_call)
{
    Host host([](ka_options &options) {
        options.callback = [](ka_host *, int32_t, void *) {
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
            return 0;
        };
    });
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    ka_set_deadline(host, 2000);
    ka_begin(host, "ask_many");
    ka_add_integer(host, 10, KA_BY_VALUE);
    ka_add_integer(host, 0, KA_BY_REFERENCE);
    EXPECT_EQ(call_fails(host), KA_DEADLINE);
    EXPECT_NE(error_text(host).find("a call-back of \"ask_many\""), std::string::npos) << error_text(host);
}

TEST(Deadline, is_not_shortened_by_signals_that_interrupt_the_wait)
{
    Host host;
    const Alarms alarms;
    EXPECT_EQ(call_with(host, "nap", 200), 0);
}

// Makes the descriptor readable once the host is inside a function. Every signal is blocked in the thread.
struct Canceller {
    Canceller(int event, pid_t host)
        : thread([event, host] {
              sigset_t set;
              sigfillset(&set);
              pthread_sigmask(SIG_BLOCK, &set, nullptr);
              EXPECT_TRUE(is_in_function(host));
              eventfd_write(event, 1);
          })
    {
    }
    ~Canceller() { thread.join(); }
    std::thread thread;
};

// The descriptor stays readable while the host ends; a deaf one still gets SIGKILL after the grace time.
TEST(Cancellation, ends_the_call_and_the_host)
{
    for (const char *function : {"hang", "hang_deaf"}) {
        const int event = eventfd(0, EFD_CLOEXEC);
        {
            Host host([event](ka_options &options) {
                options.cancel_fd = event;
                options.grace_ms = 100;
            });
            const Remains remains(host);
            const Canceller canceller(event, ka_pid(host));
            ka_begin(host, function);
            EXPECT_EQ(call_fails(host), KA_CANCELLED);
            EXPECT_EQ(error_text(host), tasks_module + ": a call of \"" + function + "\" was cancelled");
            remains.expect_none();
        }
        close(event);
    }
}

TEST(Cancellation, before_the_call_keeps_the_function_from_running)
{
    const int event = eventfd(0, EFD_CLOEXEC);
    {
        Host host([event](ka_options &options) { options.cancel_fd = event; });
        EXPECT_EQ(call_with(host, "give_code", 2), 2);
        eventfd_write(event, 1);
        ka_begin(host, "give_code");
        ka_add_integer(host, 2, KA_BY_VALUE);
        EXPECT_EQ(call_fails(host), KA_CANCELLED);
    }
    close(event);
}

// Its clean-up takes longer.
TEST(Close, ends_the_host_after_the_grace_time)
{
    const CleanUp clean_up;
    int32_t pid = 0;
    {
        Host host([](ka_options &options) {
            options.grace_ms = 0;
            options.deadline_ms = 20000;
        });
        pid = ka_pid(host);
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
    }
    EXPECT_EQ(kill(pid, 0), -1);
    EXPECT_FALSE(clean_up.done());
}

TEST(Close, frees_the_segment_of_a_host_that_has_died)
{
    int segment = -1;
    {
        Host host;
        segment = segment_of(ka_pid(host));
        ka_begin(host, "leave");
        ka_add_integer(host, 3, KA_BY_VALUE);
        EXPECT_EQ(call_fails(host), KA_DIED);
        EXPECT_TRUE(becomes_true([segment] { return users_of(segment) == 1; }));
    }
    EXPECT_TRUE(segment_vanishes(segment));
}

TEST(Close, of_nothing_is_allowed)
{
    EXPECT_EQ(ka_close(nullptr), KA_DONE);
}
