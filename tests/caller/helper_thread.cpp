// SPDX-License-Identifier: MIT
//
// The library's own thread: what it runs, and for how long it is waited for.
#include "process/helper_thread.h"
#include "base/clock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "caller/hosts.h"
#include "caller/waiting.h"

namespace {

constexpr int64_t never = int64_t{1} << 60;

void add_one(void *argument)
{
    ++*static_cast<int *>(argument);
}

// Keeps the thread from all other work, from here to end().
class LongWork {
public:
    LongWork() : thread_([this] { run_in_helper_thread(go_on, this, never); })
    {
        EXPECT_TRUE(becomes_true([&] { return begun_.load(); }));
    }
    void end()
    {
        ends_ = true;
        thread_.join();
    }

private:
    static void go_on(void *argument)
    {
        auto *work = static_cast<LongWork *>(argument);
        work->begun_ = true;
        while (!work->ends_)
            std::this_thread::yield();
    }

    std::atomic<bool> begun_{false};
    std::atomic<bool> ends_{false};
    std::thread thread_;
};

} // namespace

TEST(HelperThread, work_has_been_done_on_return)
{
    int done = 0;
    for (int i = 0; i < 1000; i++)
        ASSERT_EQ(run_in_helper_thread(add_one, &done, never), 0);
    EXPECT_EQ(done, 1000);
}

TEST(HelperThread, work_of_many_threads_is_done_by_one)
{
    int done = 0; // not atomic, on purpose
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; i++)
        threads.emplace_back([&] {
            for (int k = 0; k < 500; k++)
                ASSERT_EQ(run_in_helper_thread(add_one, &done, never), 0);
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(done, 4000);
}

TEST(HelperThread, blocks_every_signal)
{
    sigset_t blocked;
    run_in_helper_thread([](void *set) { pthread_sigmask(SIG_SETMASK, nullptr, static_cast<sigset_t *>(set)); },
                         &blocked, never);
    for (int signal : {SIGUSR2, SIGTERM, SIGINT, SIGCHLD, SIGALRM})
        EXPECT_EQ(sigismember(&blocked, signal), 1) << signal;
}

// Work that has not begun in time never begins.
TEST(HelperThread, is_not_waited_for_beyond_the_deadline)
{
    LongWork work;
    int done = 0;
    EXPECT_EQ(run_in_helper_thread(add_one, &done, 1), ETIMEDOUT);
    work.end();
    EXPECT_EQ(run_in_helper_thread(add_one, &done, never), 0);
    EXPECT_EQ(done, 1);
}

// The start of a host is such work.
TEST(HelperThread, start_that_it_does_not_begin_in_time_is_late)
{
    LongWork work;
    ka_options options = default_options();
    options.deadline_ms = 20;
    ka_host *host;
    EXPECT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_DEADLINE);
    EXPECT_EQ(error_text(host), tasks_module + " did not start within 20 ms");
    ka_close(host);
    work.end();
}

// It uses the caller's memory. Work that the system did not begin in time is tried again.
TEST(HelperThread, is_waited_for_beyond_the_deadline_once_it_has_begun)
{
    struct Work {
        int64_t deadline;
        bool begun = false;
        std::atomic<bool> done{false};
    };
    for (int attempts = 0; attempts < 100; attempts++) {
        Work work{now_ns() + 50000000};
        const int result = run_in_helper_thread(
            [](void *argument) {
                auto *own = static_cast<Work *>(argument);
                own->begun = true;
                while (now_ns() < own->deadline + 5000000)
                    std::this_thread::yield();
                own->done = true;
            },
            &work, work.deadline);
        EXPECT_EQ(result, work.begun ? 0 : ETIMEDOUT);
        EXPECT_EQ(work.done, work.begun);
        if (work.begun) return;
    }
    FAIL() << "no work begins within 50 ms";
}

// The threads that want it are the parent's.
TEST(HelperThread, child_of_fork_does_none_of_the_work_that_waits)
{
    struct Hold {
        std::atomic<bool> begun{false};
        std::atomic<bool> ends{false};
    } hold;
    std::atomic<pid_t> waiting{0};
    int done = 0;
    std::thread first([&] {
        run_in_helper_thread(
            [](void *argument) {
                auto *held = static_cast<Hold *>(argument);
                held->begun = true;
                while (!held->ends)
                    usleep(1000);
            },
            &hold, never);
    });
    EXPECT_TRUE(becomes_true([&] { return hold.begun.load(); }));
    std::thread second([&] {
        waiting = gettid();
        run_in_helper_thread(add_one, &done, never);
    });
    EXPECT_TRUE(becomes_true([&] {
        const std::string status = read_file("/proc/self/task/" + std::to_string(waiting) + "/status");
        return status.find("State:\tS") != std::string::npos;
    }));
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        int own = 0;
        _exit(run_in_helper_thread(add_one, &own, never) == 0 && own == 1 ? done : 9);
    }
    int status = -1;
    waitpid(child, &status, 0);
    hold.ends = true;
    first.join();
    second.join();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(done, 1);
}

TEST(HelperThread, child_of_fork_gets_its_own)
{
    int done = 0;
    run_in_helper_thread(add_one, &done, never);
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        run_in_helper_thread(add_one, &done, never);
        _exit(done);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 2);
    run_in_helper_thread(add_one, &done, never);
    EXPECT_EQ(done, 2);
}
