// SPDX-License-Identifier: MIT
//
// Programs with threads: those that call, and those that only happen to be there with SIGUSR2 unblocked.
#include "caller/many_calls.h"

#include <atomic>
#include <csignal>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "caller/waiting.h"

namespace {

// Threads that sleep, and so are the first to whom the kernel can give a signal.
struct Idlers {
    explicit Idlers(int count)
    {
        for (int i = 0; i < count; i++)
            threads_.emplace_back([this] {
                constexpr timespec ms = {0, 1000000};
                while (!ended_)
                    ended_early_ += nanosleep(&ms, nullptr) != 0 ? 1 : 0;
            });
    }
    ~Idlers()
    {
        ended_ = true;
        for (std::thread &thread : threads_)
            thread.join();
    }

    int ended_early() const { return ended_early_; }

private:
    std::atomic<bool> ended_{false};
    std::atomic<int> ended_early_{0};
    std::vector<std::thread> threads_;
};

// SIGUSR2 in this thread, and in those that begin here.
struct Blocked {
    explicit Blocked(bool blocks)
    {
        sigset_t replies;
        sigemptyset(&replies);
        if (blocks) sigaddset(&replies, SIGUSR2);
        pthread_sigmask(SIG_BLOCK, &replies, &before_);
    }
    ~Blocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_;
};

} // namespace

TEST(Threads, idle_ones_with_the_signal_unblocked_survive)
{
    const Idlers idlers(4);
    Host host(adding_one);
    call_many(host, 1000);
}

// No reply is a signal, so none can end a sleep. In the fast way of waiting no thread lets the signal in.
TEST(Threads, no_reply_ends_the_sleep_of_another_one)
{
    for (const int32_t transport : {KA_TRANSPORT_SIGNALS, KA_TRANSPORT_FAST}) {
        for (const int32_t waiting : {KA_WAIT_SAFE, KA_WAIT_FAST}) {
            const Blocked blocked(waiting == KA_WAIT_FAST);
            const Idlers idlers(16);
            Host host([&](ka_options &options) {
                adding_one(options);
                options.transport = transport;
                options.waiting = waiting;
            });
            call_many(host, 5000);
            EXPECT_EQ(idlers.ended_early(), 0) << "transport " << transport << ", waiting " << waiting;
        }
    }
}

// The main thread is the kernel's first choice, and here it does not call.
TEST(Threads, main_thread_that_only_waits_survives)
{
    Host host(adding_one);
    std::thread([&] { call_many(host, 1000); }).join();
}

TEST(Threads, eight_call_a_host_each)
{
    std::vector<std::thread> threads;
    for (int32_t i = 0; i < 8; i++)
        threads.emplace_back([i] {
            Host host([i](ka_options &options) {
                adding_one(options);
                options.layout = i % 2 ? KA_LAYOUT_64 : KA_LAYOUT_NATIVE;
            });
            call_many(host, 1000, 100000 * i);
        });
    for (std::thread &thread : threads)
        thread.join();
}

// A reply can come to another of them, in its wait.
TEST(Threads, four_that_wait_fast_call_a_host_each)
{
    sigset_t set;
    sigset_t before;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &set, &before);
    std::vector<std::thread> threads;
    for (int32_t i = 0; i < 4; i++)
        threads.emplace_back([i] {
            Host host([](ka_options &options) {
                adding_one(options);
                options.waiting = KA_WAIT_FAST;
            });
            call_many(host, 1000, 100000 * i);
        });
    for (std::thread &thread : threads)
        thread.join();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(Threads, some_with_the_signal_blocked_call_too)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++)
        threads.emplace_back([i] {
            sigset_t set;
            sigemptyset(&set);
            sigaddset(&set, SIGUSR2);
            if (i % 2) pthread_sigmask(SIG_BLOCK, &set, nullptr);
            Host host(adding_one);
            call_many(host, 500, 1000 * i);
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST(Threads, hosts_are_opened_and_closed_while_others_call)
{
    std::vector<std::thread> threads;
    for (int32_t i = 0; i < 4; i++)
        threads.emplace_back([i] {
            for (int k = 0; k < 25; k++) {
                Host host(adding_one);
                call_many(host, 10, 100 * i);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST(Threads, host_outlives_the_thread_that_opened_it)
{
    ka_host *host = nullptr;
    std::thread([&] {
        ASSERT_EQ(ka_open(&host, tasks_module.c_str(), nullptr), KA_DONE);
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
    }).join();
    for (int32_t i = 0; i < 100; i++)
        EXPECT_EQ(call_with(host, "give_code", i), i);
    std::thread([&] { EXPECT_EQ(call_with(host, "give_code", 3), 3); }).join();
    EXPECT_EQ(ka_close(host), KA_DONE);
}

TEST(Threads, host_is_handed_from_thread_to_thread)
{
    Host host(adding_one);
    for (int32_t i = 0; i < 200; i++)
        std::thread([&] { call_many(host, 1, i); }).join();
}

TEST(Threads, child_of_fork_opens_hosts_of_its_own)
{
    Host host;
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    const pid_t child = fork();
    if (child == 0) {
        alarm(30);
        {
            Host own(adding_one);
            call_many(own, 100, 7);
        }
        // Without hosts the signal is what it was: it ends the process.
        if (!testing::Test::HasFailure()) raise(SIGUSR2);
        _exit(1);
    }
    EXPECT_EQ(call_with(host, "give_code", 2), 2);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGUSR2);
    EXPECT_EQ(call_with(host, "give_code", 3), 3);
}

// Sent at once, it may come before the child has set its signals in order.
TEST(Threads, child_of_fork_keeps_a_signal_that_is_meant_for_it)
{
    sigset_t set;
    sigset_t before;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &set, &before);
    const Host host;
    for (int i = 0; i < 100; i++) {
        const pid_t child = fork();
        if (child == 0) {
            const struct timespec ten_seconds = {10, 0};
            _exit(sigtimedwait(&set, nullptr, &ten_seconds) == SIGUSR2 ? 0 : 1);
        }
        kill(child, SIGUSR2);
        int status = 1;
        waitpid(child, &status, 0);
        ASSERT_EQ(status, 0);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

#ifndef __SANITIZE_ADDRESS__ // whose allocator gives the child locks that other threads held
TEST(Threads, fork_while_others_call_leaves_the_child_usable)
{
    std::atomic<bool> ended{false};
    std::vector<std::thread> callers;
    for (int i = 0; i < 2; i++)
        callers.emplace_back([&ended] {
            Host host(adding_one);
            while (!ended)
                call_many(host, 1, 1);
        });
    for (int i = 0; i < 20; i++) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(30);
            {
                Host own(adding_one);
                call_many(own, 5, 1);
            }
            _exit(testing::Test::HasFailure() ? 1 : 0);
        }
        int status = 1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    ended = true;
    for (std::thread &caller : callers)
        caller.join();
}
#endif

// A cancellation of a thread takes effect when the function that the thread is in returns.
TEST(Threads, cancelled_in_a_call_finish_it)
{
    static int32_t status;
    pthread_t thread;
    Host host;
    pthread_create(
        &thread, nullptr,
        [](void *used) -> void * {
            int32_t code = 0;
            ka_host *own = static_cast<ka_host *>(used);
            ka_begin(own, "nap");
            ka_add_integer(own, 300, KA_BY_VALUE);
            status = ka_call(own, &code);
            pthread_testcancel();
            return used;
        },
        host.host);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    pthread_cancel(thread);
    void *result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(status, KA_DONE);
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
}

TEST(Threads, cancelled_in_a_start_hold_no_other_up)
{
    for (int i = 0; i < 100; i++) {
        pthread_t thread;
        pthread_create(
            &thread, nullptr,
            [](void *) -> void * {
                for (;;) {
                    ka_host *host;
                    ka_open(&host, tasks_module.c_str(), nullptr);
                    ka_close(host);
                    pthread_testcancel();
                }
            },
            nullptr);
        std::this_thread::sleep_for(std::chrono::microseconds(3000 + 10 * i));
        pthread_cancel(thread);
        pthread_join(thread, nullptr);
    }
    Host host;
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
}

TEST(Threads, two_ways_of_waiting_do_not_mix)
{
    for (int32_t first : {KA_WAIT_SAFE, KA_WAIT_FAST}) {
        const int32_t second = first == KA_WAIT_SAFE ? KA_WAIT_FAST : KA_WAIT_SAFE;
        Host host([&](ka_options &options) { options.waiting = first; });
        ka_options options = default_options();
        options.waiting = second;
        ka_host *other;
        EXPECT_EQ(ka_open(&other, tasks_module.c_str(), &options), KA_ARGUMENT);
        EXPECT_EQ(error_text(other),
                  second == KA_WAIT_FAST
                      ? "waiting is KA_WAIT_FAST, but open hosts of this program wait the safe way"
                      : "waiting is KA_WAIT_SAFE, but open hosts of this program wait the fast way");
        ka_close(other);
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
    }
}

TEST(Threads, unknown_way_of_waiting_is_refused)
{
    ka_options options = default_options();
    options.waiting = 2;
    ka_host *host;
    EXPECT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "waiting is 2; it is KA_WAIT_SAFE (0) or KA_WAIT_FAST (1)");
    ka_close(host);
}
