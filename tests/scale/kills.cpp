// SPDX-License-Identifier: MIT
//
// Callers and hosts killed at random moments of everything they do: no process is left, and no segment. KA_SEED
// repeats the moments.
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "caller/hosts.h"
#include "caller/waiting.h"
#include "scale/scale.h"

namespace {

using std::chrono::microseconds;

class Kills : public testing::TestWithParam<int32_t> {
protected:
    // Orphans come to this process, so that their end can be waited for.
    Kills()
    {
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        const char *given = getenv("KA_SEED");
        seed = given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device()();
        random.seed(seed);
    }
    ~Kills() override { prctl(PR_SET_CHILD_SUBREAPER, 0); }

    // Evenly spread over what a life of a host takes, and somewhat more.
    microseconds moment() { return microseconds(random() % 8000); }

    static ka_options options()
    {
        ka_options options = default_options();
        options.waiting = GetParam();
        options.grace_ms = 0; // SIGKILL follows SIGTERM at once, in the middle of whatever the host does
        return options;
    }

    unsigned seed;
    std::mt19937 random;
};
INSTANTIATE_TEST_SUITE_P(Waiting, Kills, testing::Values(KA_WAIT_SAFE, KA_WAIT_FAST),
                         [](const auto &mode) { return mode.param == KA_WAIT_SAFE ? "safe" : "fast"; });

int32_t ask_many(ka_host *host, int32_t *code)
{
    ka_begin(host, "ask_many");
    ka_add_integer(host, 20, KA_BY_VALUE);
    ka_add_integer(host, 0, KA_BY_REFERENCE);
    return ka_call(host, code);
}

// Starts, calls, is called back and ends, again and again. Silently: a host that starts when its caller has just been
// killed complains that there is no segment.
[[noreturn]] void live(const ka_options &options)
{
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDERR_FILENO);
    for (;;) {
        ka_host *host;
        int32_t code;
        ka_open(&host, tasks_module.c_str(), &options);
        ask_many(host, &code);
        ka_close(host);
    }
}

bool all_children_end()
{
    return becomes_true([] {
        int status;
        while (waitpid(-1, &status, WNOHANG) > 0)
            ;
        return waitpid(-1, &status, WNOHANG) == -1 && errno == ECHILD;
    });
}

// SIGKILL for a process after a while, from a process of its own: a thread would have SIGUSR2 unblocked.
pid_t kill_after(pid_t victim, microseconds while_)
{
    const pid_t killer = fork();
    if (killer != 0) return killer;
    std::this_thread::sleep_for(while_);
    kill(victim, SIGKILL);
    _exit(0);
}

} // namespace

TEST_P(Kills, of_the_caller_leave_nothing)
{
    const int32_t count = rounds(50);
    const Timed timed("kills of a caller", count);
    for (int32_t i = 0; i < count; i++) {
        const pid_t caller = fork();
        if (caller == 0) live(options());
        std::this_thread::sleep_for(moment());
        kill(caller, SIGKILL);
        ASSERT_TRUE(all_children_end()) << "kill " << i << ", KA_SEED=" << seed;
        ASSERT_TRUE(segments_of_creator_vanish(caller)) << "kill " << i << ", KA_SEED=" << seed;
    }
}

TEST_P(Kills, of_the_host_leave_nothing_and_are_told)
{
    const int32_t count = rounds(50);
    const Timed timed("kills of a host", count);
    const ka_options used = options();
    for (int32_t i = 0; i < count; i++) {
        ka_host *host;
        ASSERT_EQ(ka_open(&host, tasks_module.c_str(), &used), KA_DONE);
        const pid_t pid = ka_pid(host);
        const pid_t killer = kill_after(pid, moment());
        int32_t code;
        while (ask_many(host, &code) == KA_DONE)
            ;
        EXPECT_EQ(ka_last_error(host)->error_class, KA_DIED) << error_text(host) << ", KA_SEED=" << seed;
        EXPECT_EQ(ka_last_error(host)->signal, SIGKILL);
        ka_close(host);
        waitpid(killer, nullptr, 0);
        ASSERT_EQ(kill(pid, 0), -1) << "kill " << i << ", KA_SEED=" << seed;
    }
    EXPECT_TRUE(all_children_end());
    EXPECT_TRUE(segments_of_creator_vanish(getpid()));
}

// Stopped, it has no children but those that are read here.
static void kill_with_children(pid_t caller)
{
    kill(caller, SIGSTOP);
    waitpid(caller, nullptr, WUNTRACED);
    for (const auto &thread : std::filesystem::directory_iterator("/proc/" + std::to_string(caller) + "/task")) {
        std::istringstream children(read_file(thread.path() / "children"));
        for (pid_t child; children >> child;)
            kill(child, SIGKILL);
    }
    kill(caller, SIGKILL);
}

// Both at once, so that neither can clean up after the other: what they left unmarked goes with the next start.
TEST_P(Kills, of_caller_and_host_together_leave_nothing_that_the_next_start_does_not_remove)
{
    const int32_t count = rounds(50);
    const Timed timed("kills of both", count);
    for (int32_t i = 0; i < count; i++) {
        const pid_t caller = fork();
        if (caller == 0) live(options());
        std::this_thread::sleep_for(moment());
        kill_with_children(caller);
        ASSERT_TRUE(all_children_end()) << "kill " << i << ", KA_SEED=" << seed;
        const ka_options used = options();
        ka_host *host;
        ASSERT_EQ(ka_open(&host, tasks_module.c_str(), &used), KA_DONE);
        ka_close(host);
        ASSERT_TRUE(segments_of_creator_vanish(caller)) << "kill " << i << ", KA_SEED=" << seed;
    }
}
