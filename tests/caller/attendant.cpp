// SPDX-License-Identifier: MIT
//
// The library's own thread: what it runs, and for how long it is waited for.
#include "attendant.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "caller/waiting.h"

namespace {

constexpr int64_t never = int64_t{1} << 60;

void add_one(void *argument)
{
    ++*static_cast<int *>(argument);
}

} // namespace

TEST(Attendant, work_has_been_done_on_return)
{
    int done = 0;
    for (int i = 0; i < 1000; i++)
        ASSERT_EQ(attendant_run(add_one, &done, never), 0);
    EXPECT_EQ(done, 1000);
}

TEST(Attendant, work_of_many_threads_is_done_by_one)
{
    int done = 0; // not atomic, on purpose
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; i++)
        threads.emplace_back([&] {
            for (int k = 0; k < 500; k++)
                ASSERT_EQ(attendant_run(add_one, &done, never), 0);
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(done, 4000);
}

TEST(Attendant, blocks_every_signal)
{
    sigset_t blocked;
    attendant_run([](void *set) { pthread_sigmask(SIG_SETMASK, nullptr, static_cast<sigset_t *>(set)); }, &blocked,
                  never);
    for (int signal : {SIGUSR2, SIGTERM, SIGINT, SIGCHLD, SIGALRM})
        EXPECT_EQ(sigismember(&blocked, signal), 1) << signal;
}

// Work that has not begun in time never begins.
TEST(Attendant, is_not_waited_for_beyond_the_deadline)
{
    static std::atomic<bool> holds_up;
    holds_up = true;
    std::atomic<bool> busy{false};
    std::thread first([&] {
        attendant_run(
            [](void *begun) {
                *static_cast<std::atomic<bool> *>(begun) = true;
                while (holds_up)
                    std::this_thread::yield();
            },
            &busy, never);
    });
    EXPECT_TRUE(becomes_true([&] { return busy.load(); }));
    int done = 0;
    EXPECT_EQ(attendant_run(add_one, &done, 1), ETIMEDOUT);
    holds_up = false;
    first.join();
    EXPECT_EQ(attendant_run(add_one, &done, never), 0);
    EXPECT_EQ(done, 1);
}

TEST(Attendant, child_of_fork_gets_its_own)
{
    int done = 0;
    attendant_run(add_one, &done, never);
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        attendant_run(add_one, &done, never);
        _exit(done);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 2);
    attendant_run(add_one, &done, never);
    EXPECT_EQ(done, 2);
}
