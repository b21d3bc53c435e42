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
    // A wait in which another thread gets the host's signal, and rouses this one.
    void wait_and_be_roused()
    {
        enter_waiter(waiter_, gettid());
        std::thread([] {
            siginfo_t info = {};
            info.si_code = SI_USER;
            info.si_pid = no_host;
            EXPECT_TRUE(take_signal(&info));
        }).join();
        EXPECT_EQ(waiter_->state, WAITER_WOKEN);
        leave_waiter(waiter_);
    }
    bool take(siginfo_t *info) const
    {
        constexpr struct timespec no_time = {};
        return sigtimedwait(&set_, info, &no_time) == SIGUSR2;
    }

private:
    t_WAITER *waiter_;
    sigset_t set_;
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
