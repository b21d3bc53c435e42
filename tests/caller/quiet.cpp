// SPDX-License-Identifier: MIT
//
// The fast transport: calls that need no signal between the library and its own host. That they do the same as all
// others, the whole suite shows, which is run in it; here is what is its own: the waits, deaths in each of them, and
// what a caller spares.
#include "caller/hosts.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "block/annex.h"
#include "caller/waiting.h"
#include "host/host.h"

namespace {

const std::string fast_annex_module = module_path("annex");

class Fast : public EveryWay {
protected:
    std::function<void(ka_options &)> fast(int32_t spin_us = 50) const
    {
        return [this, spin_us](ka_options &options) {
            layout()(options);
            options.transport = KA_TRANSPORT_FAST;
            options.spin_us = spin_us;
        };
    }
};
IN_EVERY_WAY(Fast);

const t_ANNEX &annex_of(ka_host *host)
{
    return *host->segment.annex;
}

uint32_t waits(ka_host *host)
{
    return __atomic_load_n(&annex_of(host).waits, __ATOMIC_SEQ_CST);
}

bool comes_to_wait_for_signals(ka_host *host)
{
    return becomes_true([host] { return waits(host) == wire::HOST_IN_SIGSUSPEND; }) && becomes_idle(ka_pid(host));
}

// User and system time of a process so far, in ticks.
long processor_time(pid_t pid)
{
    std::istringstream fields(read_file("/proc/" + std::to_string(pid) + "/stat"));
    std::string word;
    long user = 0;
    long system = 0;
    for (int i = 1; i <= 13; i++)
        fields >> word;
    fields >> user >> system;
    return user + system;
}

// Voluntary and other changes of the thread: none while it sleeps.
std::string switches(pid_t pid)
{
    const std::string status = read_file("/proc/" + std::to_string(pid) + "/status");
    return status.substr(status.find("\nvoluntary_ctxt_switches"));
}

} // namespace

// The first is a signal; for those that follow closely none is needed. (Where the machine is busy some may not follow
// closely.)
TEST_P(Fast, calls_that_follow_each_other_need_no_signal)
{
    Host host(fast());
    EXPECT_EQ(call_with(host, "give_code", 0), 0);
    int quiet = 0;
    for (int32_t i = 0; i < 200; i++) {
        ASSERT_EQ(call_with(host, "give_code", i), i);
        quiet += host.host->waiting.is_quiet ? 1 : 0;
    }
    EXPECT_GT(quiet, 0);
}

TEST_P(Fast, calls_and_callbacks_are_right_with_and_without_spinning)
{
    for (int32_t spin_us : {0, 1, 50, int32_t{KA_SPIN_MAX}}) {
        Host host([&](ka_options &options) {
            fast(spin_us)(options);
            options.callback = [](ka_host *, int32_t value, void *) { return 3 * value; };
        });
        for (int32_t i = 0; i < 100; i++) {
            ka_begin(host, "ask_many");
            ka_add_integer(host, 5, KA_BY_VALUE);
            ka_add_integer(host, 0, KA_BY_REFERENCE);
            ASSERT_EQ(call(host), 0);
            ASSERT_EQ(integers(host, 2, 1), std::vector<int32_t>{3 * (0 + 1 + 2 + 3 + 4)});
        }
    }
}

// A pause of every length between two calls: the host is met in each of its waits, and on its way from one to
// another.
TEST_P(Fast, no_call_is_lost_whenever_it_comes)
{
    Host host(fast());
    for (int32_t i = 0; i < 300; i++) {
        ASSERT_EQ(call_with(host, "give_code", i), i);
        usleep(static_cast<useconds_t>(i % 30 * 100));
    }
}

TEST_P(Fast, one_processor_alone_is_never_spun_on)
{
    cpu_set_t before;
    cpu_set_t one;
    ASSERT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    {
        Host host(fast());
        for (int32_t i = 0; i < 200; i++)
            EXPECT_EQ(call_with(host, "give_code", i), i);
        EXPECT_FALSE(host.host->waiting.spin.several_cpus);
        EXPECT_EQ(host.host->waiting.spin.credit, uint32_t{wire::SPIN_CREDIT_MAX}); // neither a success nor a miss
    }
    sched_setaffinity(0, sizeof before, &before);
}

TEST_P(Fast, an_idle_host_uses_no_processor_time)
{
    Host host(fast());
    for (int32_t i = 0; i < 20; i++)
        call_with(host, "give_code", i);
    ASSERT_TRUE(comes_to_wait_for_signals(host));
    const long time = processor_time(ka_pid(host));
    const std::string before = switches(ka_pid(host));
    usleep(300000);
    EXPECT_EQ(switches(ka_pid(host)), before);
    EXPECT_EQ(processor_time(ka_pid(host)), time);
}

TEST_P(Fast, a_callback_calls_other_hosts)
{
    Host inner(fast());
    Host outer([&](ka_options &options) {
        fast()(options);
        options.user = inner;
        options.callback = [](ka_host *, int32_t value, void *user) {
            return call_with(static_cast<ka_host *>(user), "give_code", value) + 1;
        };
    });
    for (int32_t i = 0; i < 100; i++)
        ASSERT_EQ(call_with(outer, "ask", i), i + 1);
}

TEST_P(Fast, the_trace_level_changes_between_calls_and_in_a_callback)
{
    Host host([&](ka_options &options) {
        fast()(options);
        options.error_output = KA_STDERR_RING;
        options.callback = [](ka_host *host, int32_t value, void *) {
            EXPECT_EQ(ka_set_trace(host, 1), KA_DONE);
            return value;
        };
    });
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    EXPECT_EQ(call_with(host, "ask", 2), 2);
    EXPECT_EQ(call_with(host, "give_code", 3), 3);
    EXPECT_EQ(ka_set_trace(host, 0), KA_DONE);
    EXPECT_EQ(call_with(host, "give_code", 4), 4);
    char text[4096];
    EXPECT_TRUE(becomes_true([&] {
        const int32_t length = ka_error_output(host, text, sizeof text);
        return std::string(text, static_cast<size_t>(length)).find("give_code") != std::string::npos;
    }));
}

// ---- The end of a call before its reply
// ----------------------------------------------------------------------------

TEST_P(Fast, a_deadline_ends_a_call_in_every_wait_for_it)
{
    for (int32_t deadline_ms : {1, 20, 120}) {
        Host host(fast());
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
        ka_set_deadline(host, deadline_ms);
        ka_begin(host, "hang");
        EXPECT_EQ(call_fails(host), KA_DEADLINE);
    }
}

TEST_P(Fast, with_a_descriptor_to_cancel_by_calls_are_made_by_signals)
{
    const int cancel = eventfd(0, EFD_CLOEXEC);
    {
        Host host([&](ka_options &options) {
            fast()(options);
            options.cancel_fd = cancel;
        });
        for (int32_t i = 0; i < 20; i++) {
            EXPECT_EQ(call_with(host, "give_code", i), i);
            EXPECT_FALSE(host.host->waiting.is_quiet);
            EXPECT_EQ(waits(host), wire::HOST_IN_SIGSUSPEND);
        }
        std::thread canceller([&] {
            is_in_function(ka_pid(host));
            eventfd_write(cancel, 1);
        });
        ka_begin(host, "hang");
        EXPECT_EQ(call_fails(host), KA_CANCELLED);
        canceller.join();
    }
    close(cancel);
}

// The other side dies while this one waits for it, by a spin, a sleep, or between the two.
TEST_P(Fast, a_death_ends_the_call_whenever_it_comes)
{
    for (int32_t us : {0, 5, 20, 60, 200, 2000, 80000}) {
        Host host(fast());
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
        const pid_t pid = ka_pid(host);
        std::thread killer([us, pid] {
            usleep(static_cast<useconds_t>(us));
            kill(pid, SIGKILL);
        });
        ka_begin(host, "hang");
        EXPECT_EQ(call_fails(host), KA_DIED) << us;
        EXPECT_EQ(ka_last_error(host)->signal, SIGKILL);
        killer.join();
    }
}

// The host, too, is in one of its waits.
TEST_P(Fast, the_callers_death_ends_the_host_whenever_it_comes)
{
    for (int32_t us : {0, 20, 500, 3000}) {
        int ends_of_pipe[2];
        ASSERT_EQ(pipe(ends_of_pipe), 0);
        const pid_t caller = fork();
        if (caller == 0) {
            Host host(fast());
            for (int32_t i = 0; i < 5; i++)
                call_with(host, "give_code", i);
            const pid_t pid = ka_pid(host);
            if (write(ends_of_pipe[1], &pid, sizeof pid) != sizeof pid) _exit(1);
            usleep(static_cast<useconds_t>(us));
            kill(getpid(), SIGKILL);
        }
        pid_t pid = 0;
        EXPECT_EQ(read(ends_of_pipe[0], &pid, sizeof pid), static_cast<ssize_t>(sizeof pid));
        EXPECT_EQ(waitpid(caller, nullptr, 0), caller);
        EXPECT_TRUE(ends(pid));
        close(ends_of_pipe[0]);
        close(ends_of_pipe[1]);
    }
}

// Where it may, the caller even has a priority of real time, before which the host does not run on the same
// processor.
TEST_P(Fast, unequal_priorities_hold_no_call_up)
{
    Host host(fast());
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    const sched_param lowest = {};
    const sched_param real_time = {1};
    ASSERT_EQ(setpriority(PRIO_PROCESS, static_cast<id_t>(ka_pid(host)), 19), 0);
    sched_setscheduler(0, SCHED_FIFO, &real_time);
    for (int32_t i = 0; i < 50; i++)
        EXPECT_EQ(call_with(host, "give_code", i), i);
    sched_setscheduler(0, SCHED_OTHER, &lowest);
}

TEST_P(Fast, a_death_between_calls_is_seen_by_the_next)
{
    Host host(fast());
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    kill(ka_pid(host), SIGKILL);
    ASSERT_TRUE(ends(ka_pid(host)));
    ka_begin(host, "hang");
    EXPECT_EQ(call_fails(host), KA_DIED);
}

// Overwritten, the word that tells of a host's life neither changes at its death nor wakes anyone.
TEST_P(Fast, a_host_that_has_overwritten_its_life_and_dies_is_found_dead)
{
    for (uint32_t word : {0x12345678u, 0u, 0xffffffffu}) {
        Host host([&](ka_options &options) {
            fast()(options);
            options.deadline_ms = 20000;
        });
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
        ASSERT_TRUE(comes_to_wait_for_signals(host)); // else the sleep there looks like one in a function
        std::thread module([&, pid = ka_pid(host)] {
            is_in_function(pid);
            __atomic_store_n(&host.host->segment.annex->life, word, __ATOMIC_SEQ_CST);
            kill(pid, SIGKILL);
        });
        ka_begin(host, "hang");
        EXPECT_EQ(call_fails(host), KA_DIED);
        module.join();
    }
}

// What the host says about its waiting is overwritten when it waits for a signal.
TEST_P(Fast, a_host_that_was_not_woken_gets_the_signal_later)
{
    for (uint32_t word : {uint32_t{wire::HOST_AWAKE}, uint32_t{wire::HOST_SLEEPS_ON_REQUEST}, 4711u}) {
        Host host(fast());
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
        ASSERT_TRUE(comes_to_wait_for_signals(host));
        __atomic_store_n(&host.host->segment.annex->waits, word, __ATOMIC_SEQ_CST);
        EXPECT_EQ(call_with(host, "give_code", 7), 7);
        EXPECT_EQ(call_with(host, "give_code", 8), 8);
    }
}

TEST_P(Fast, overwritten_memory_costs_no_call_and_repeats_none)
{
    for (int32_t pattern : {0, 1, 2}) {
        Host host(
            [&](ka_options &options) {
                fast()(options);
                options.checking = KA_RAW;
            },
            fast_annex_module);
        const auto offset = static_cast<int32_t>(static_cast<char *>(static_cast<void *>(host.host->segment.annex)) -
                                                 host.host->segment.base);
        for (int32_t i = 0; i < 20; i++) {
            ASSERT_EQ(call_with(host, "ask", i), 0) << "pattern " << pattern;
            ka_begin(host, "blot");
            for (int32_t number : {offset, static_cast<int32_t>(sizeof(t_ANNEX)), pattern})
                ka_add_integer(host, number, KA_BY_VALUE);
            ASSERT_EQ(call(host), 5) << "pattern " << pattern;
        }
    }
}

TEST_P(Fast, a_stopped_host_goes_on_with_the_call)
{
    Host host(fast());
    for (int32_t us : {0, 10, 1000, 3000}) {
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
        usleep(static_cast<useconds_t>(us));
        kill(ka_pid(host), SIGSTOP);
        std::thread later([&] {
            usleep(100000);
            kill(ka_pid(host), SIGCONT);
        });
        EXPECT_EQ(call_with(host, "give_code", us), us);
        later.join();
    }
}

TEST_P(Fast, a_module_that_takes_or_ignores_the_signal_is_not_called)
{
    for (const char *function : {"take_calls", "ignore_calls"}) {
        Host host(fast());
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
        ka_begin(host, function);
        EXPECT_EQ(call(host), 0);
        ka_set_deadline(host, 500);
        ka_begin(host, "hang");
        EXPECT_EQ(call_fails(host), KA_DEADLINE) << function;
    }
}

// In a child the parent's host is not to be touched, and its own are as any.
TEST_P(Fast, a_fork_leaves_the_parents_calls_alone)
{
    Host host(fast());
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    const pid_t child = fork();
    if (child == 0) {
        int32_t code = 0;
        ka_begin(host, "give_code");
        const bool refused = ka_call(host, &code) != KA_DONE;
        ka_close(std::exchange(host.host, nullptr));
        {
            Host own(fast());
            for (int32_t i = 0; i < 20; i++)
                EXPECT_EQ(call_with(own, "give_code", i), i);
        }
        _exit(refused && !HasFailure() ? 0 : 1);
    }
    for (int32_t i = 0; i < 200; i++)
        EXPECT_EQ(call_with(host, "give_code", i), i);
    int status = 1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(FastOptions, spin_us_out_of_range_is_refused)
{
    for (int32_t spin_us : {-1, KA_SPIN_MAX + 1}) {
        ka_options options = default_options();
        options.spin_us = spin_us;
        ka_host *host = nullptr;
        EXPECT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_ARGUMENT);
        EXPECT_EQ(error_text(host), "spin_us is " + std::to_string(spin_us) + "; it must be 0 to 1000");
        ka_close(host);
    }
}
