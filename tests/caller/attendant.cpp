// SPDX-License-Identifier: MIT
//
// The library's own thread: what it runs, what it watches, and when it lets go.
#include "attendant.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "caller/waiting.h"

namespace {

// A pipe whose bytes the attendant reads and counts.
struct Pipe {
    Pipe() { EXPECT_EQ(pipe(ends), 0); }
    ~Pipe()
    {
        close(ends[0]);
        close(ends[1]);
    }
    void send() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    static void take(void *argument)
    {
        auto *self = static_cast<Pipe *>(argument);
        char byte;
        if (read(self->ends[0], &byte, 1) == 1) self->taken++;
    }
    int ends[2];
    std::atomic<int> taken{0};
    t_WATCH watch{-1, take, this};
};

void add_one(void *argument)
{
    ++*static_cast<int *>(argument);
}

} // namespace

TEST(Attendant, work_has_been_done_on_return)
{
    int done = 0;
    for (int i = 0; i < 1000; i++)
        ASSERT_EQ(attendant_run(add_one, &done), 0);
    EXPECT_EQ(done, 1000);
}

TEST(Attendant, work_of_many_threads_is_done_by_one)
{
    int done = 0; // not atomic, on purpose
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; i++)
        threads.emplace_back([&] {
            for (int k = 0; k < 500; k++)
                ASSERT_EQ(attendant_run(add_one, &done), 0);
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(done, 4000);
}

TEST(Attendant, blocks_every_signal)
{
    sigset_t blocked;
    attendant_run([](void *set) { pthread_sigmask(SIG_SETMASK, nullptr, static_cast<sigset_t *>(set)); }, &blocked);
    for (int signal : {SIGUSR2, SIGTERM, SIGINT, SIGCHLD, SIGALRM})
        EXPECT_EQ(sigismember(&blocked, signal), 1) << signal;
}

TEST(Attendant, reads_what_arrives)
{
    Pipe first, second;
    first.watch.fd = first.ends[0];
    second.watch.fd = second.ends[0];
    ASSERT_EQ(attendant_watch(&first.watch), 0);
    ASSERT_EQ(attendant_watch(&second.watch), 0);
    for (int i = 0; i < 100; i++)
        first.send();
    second.send();
    EXPECT_TRUE(becomes_true([&] { return first.taken == 100 && second.taken == 1; }));
    attendant_forget(&first.watch);
    attendant_forget(&second.watch);
}

TEST(Attendant, is_told_of_the_end_of_a_pipe_and_may_forget_it_there)
{
    static std::atomic<int> ended;
    ended = 0;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    static t_WATCH watch;
    watch = {ends[0],
             [](void *) {
                 char byte;
                 if (read(watch.fd, &byte, 1) != 0) return;
                 attendant_forget(&watch);
                 ended++;
             },
             nullptr};
    ASSERT_EQ(attendant_watch(&watch), 0);
    close(ends[1]);
    EXPECT_TRUE(becomes_true([&] { return ended > 0; }));
    int done = 0;
    attendant_run(add_one, &done); // a round later
    EXPECT_EQ(ended, 1);
    close(ends[0]);
}

TEST(Attendant, does_nothing_more_once_it_has_forgotten)
{
    for (int i = 0; i < 2000; i++) {
        auto *pipe = new Pipe;
        pipe->watch.fd = pipe->ends[0];
        ASSERT_EQ(attendant_watch(&pipe->watch), 0);
        pipe->send();
        attendant_forget(&pipe->watch);
        const int taken = pipe->taken;
        pipe->send();
        std::this_thread::yield();
        ASSERT_EQ(pipe->taken, taken);
        delete pipe;
    }
}

TEST(Attendant, child_of_fork_gets_its_own)
{
    int done = 0;
    attendant_run(add_one, &done);
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        attendant_run(add_one, &done);
        _exit(done);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 2);
    attendant_run(add_one, &done);
    EXPECT_EQ(done, 2);
}
