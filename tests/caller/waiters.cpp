// SPDX-License-Identifier: MIT
//
// A thread that waits, and signals of others that were pending in it before: they are pending again when its wait is
// over.
#include "doorbell/waiters.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr pid_t no_host = 0x3fffffff; // no process has this number
constexpr int64_t a_moment = 1000000;

// SIGUSR2 is blocked in the test's thread, and nothing of it is left at the end.
class Waiters : public testing::Test {
protected:
    Waiters() : waiter_(claim_waiter(nullptr))
    {
        sigemptyset(&set_);
        sigaddset(&set_, SIGUSR2);
        pthread_sigmask(SIG_BLOCK, &set_, &before_);
        waiter_->process = no_host;
    }
    ~Waiters() override
    {
        siginfo_t info;
        while (take(&info))
            ;
        waiter_->process = 0;
        release_waiter(waiter_);
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    // As the host would send it.
    static void signal_from_host()
    {
        siginfo_t info = {};
        info.si_code = SI_USER;
        info.si_pid = no_host;
        EXPECT_EQ(syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), SIGUSR2, &info), 0);
    }
    // A wait in which another thread gets the host's signal, and rouses this one.
    void wait_and_be_roused()
    {
        enter_waiter(waiter_);
        std::thread([] {
            signal_from_host();
            EXPECT_EQ(drain_signal(), 0);
        }).join();
        EXPECT_EQ(waiter_->state, WAITER_WOKEN);
        leave_waiter(waiter_);
    }
    bool take(siginfo_t *info) const
    {
        constexpr struct timespec no_time = {};
        return sigtimedwait(&set_, info, &no_time) == SIGUSR2;
    }

    t_WAITER *waiter_;
    sigset_t set_;

private:
    sigset_t before_;
};

} // namespace

TEST_F(Waiters, keep_no_wake_signal)
{
    wait_and_be_roused();
    siginfo_t info;
    EXPECT_FALSE(take(&info));
}

// The rousing is merged into the signal that is pending in the thread.
TEST_F(Waiters, put_a_signal_to_the_thread_back)
{
    siginfo_t info;
    pthread_kill(pthread_self(), SIGUSR2);
    wait_and_be_roused();
    ASSERT_TRUE(take(&info));
    EXPECT_EQ(info.si_pid, getpid());
    EXPECT_FALSE(take(&info));
}

TEST_F(Waiters, put_a_signal_to_the_process_back_with_its_value)
{
    siginfo_t info;
    sigval value = {};
    value.sival_int = 4711;
    pthread_kill(pthread_self(), SIGUSR2);
    sigqueue(getpid(), SIGUSR2, value);
    wait_and_be_roused();
    ASSERT_TRUE(take(&info));
    EXPECT_EQ(info.si_code, SI_QUEUE);
    EXPECT_EQ(info.si_value.sival_int, 4711);
}

TEST_F(Waiters, put_a_signal_to_the_thread_back_to_the_thread)
{
    pthread_kill(pthread_self(), SIGUSR2);
    wait_and_be_roused();
    std::thread([this] {
        siginfo_t info;
        EXPECT_FALSE(take(&info));
    }).join();
}

TEST_F(Waiters, take_the_hosts_signal_for_themselves)
{
    siginfo_t info;
    enter_waiter(waiter_);
    EXPECT_FALSE(await_signal(0, false));
    signal_from_host();
    EXPECT_TRUE(await_signal(a_moment, false));
    EXPECT_EQ(waiter_->state, WAITER_WAITING);
    leave_waiter(waiter_);
    EXPECT_FALSE(take(&info));
}

// Between the request and the wait, where the signal is not blocked.
TEST_F(Waiters, are_told_by_the_handler)
{
    struct sigaction before;
    struct sigaction action = {};
    action.sa_sigaction = [](int, siginfo_t *info, void *) { take_signal(info); };
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGUSR2, &action, &before);
    enter_waiter(waiter_);
    pthread_sigmask(SIG_UNBLOCK, &set_, nullptr);
    signal_from_host();
    EXPECT_TRUE(await_signal(a_moment, false));
    EXPECT_FALSE(await_signal(0, false)); // once
    pthread_sigmask(SIG_BLOCK, &set_, nullptr);
    leave_waiter(waiter_);
    sigaction(SIGUSR2, &before, nullptr);
}

// Its own wait gets the signal.
TEST_F(Waiters, wake_another_thread_for_whom_a_signal_is)
{
    enter_waiter(waiter_);
    std::thread([] {
        signal_from_host();
        EXPECT_TRUE(await_signal(a_moment, false));
    }).join();
    EXPECT_EQ(waiter_->state, WAITER_WOKEN);
    EXPECT_TRUE(await_signal(a_moment, false));
    leave_waiter(waiter_);
    siginfo_t info;
    EXPECT_FALSE(take(&info));
}

TEST_F(Waiters, put_back_what_is_not_theirs_as_it_came)
{
    siginfo_t info;
    sigval value = {};
    value.sival_int = 4711;
    sigqueue(getpid(), SIGUSR2, value);
    EXPECT_TRUE(await_signal(a_moment, false));
    ASSERT_TRUE(take(&info));
    EXPECT_EQ(info.si_code, SI_QUEUE);
    EXPECT_EQ(info.si_pid, getpid());
    EXPECT_EQ(info.si_value.sival_int, 4711);
}

// The kernel lets a thread put back what a process sent by that thread's id only.
TEST_F(Waiters, put_back_to_the_process_what_a_thread_has_taken)
{
    kill(getpid(), SIGUSR2);
    std::thread([] { EXPECT_TRUE(await_signal(a_moment, false)); }).join();
    siginfo_t info;
    ASSERT_TRUE(take(&info));
    EXPECT_EQ(info.si_code, SI_USER);
    EXPECT_EQ(info.si_pid, getpid());
}

TEST_F(Waiters, drop_what_is_not_theirs_where_they_are_told_to)
{
    siginfo_t info;
    kill(getpid(), SIGUSR2);
    EXPECT_TRUE(await_signal(a_moment, true));
    EXPECT_FALSE(take(&info));
}
