// SPDX-License-Identifier: MIT
//
// When a host counts as being at rest. The states between two waits of a host last microseconds; here they are in a
// file of the same form, one after the other.
#include "doorbell/rest.h"
#include "host/owned.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr uint64_t bit(int signal)
{
    return uint64_t{1} << (signal - 1);
}
constexpr uint64_t in_callback = bit(SIGINT) | bit(SIGIO) | bit(SIGALRM);
constexpr uint64_t idle = in_callback | bit(SIGUSR1);
constexpr uint64_t in_function = idle | bit(SIGUSR2);

struct State {
    char letter;
    uint64_t pending;
    uint64_t blocked;
    uint64_t caught = bit(SIGUSR2);
};

// The findings about a host that has just been signalled.
class Rests : public testing::Test {
protected:
    Rests() : host_(static_cast<ka_host *>(calloc(1, sizeof(ka_host))), free)
    {
        host_->process.status_fd = memfd_create("status", 0);
        note_owned(host_.get(), OWNED_STATUS);
    }
    ~Rests() override { close(host_->process.status_fd); }
    t_REST look_at(const State &state) const
    {
        char text[400];
        const int length =
            snprintf(text, sizeof text,
                     "Name:\tx\nState:\t%c "
                     "(x)\nSigPnd:\t%016llx\nShdPnd:\t%016llx\nSigBlk:\t%016llx\nSigIgn:\t0\nSigCgt:\t%016llx\n",
                     state.letter, 0ull, static_cast<unsigned long long>(state.pending),
                     static_cast<unsigned long long>(state.blocked), static_cast<unsigned long long>(state.caught));
        EXPECT_EQ(ftruncate(host_->process.status_fd, 0), 0);
        EXPECT_EQ(pwrite(host_->process.status_fd, text, static_cast<size_t>(length), 0), length);
        return look_for_rest(host_.get());
    }

private:
    std::unique_ptr<ka_host, void (*)(void *)> host_;
};

} // namespace

TEST_F(Rests, need_a_signal_that_was_seen_to_be_taken_before_the_sleep)
{
    EXPECT_EQ(look_at({'S', bit(SIGUSR2), idle}), NOT_AT_REST); // the wait in which it was signalled
    EXPECT_EQ(look_at({'S', 0, idle}), NOT_AT_REST);            // read while the signal was taken
    EXPECT_EQ(look_at({'S', 0, idle}), AT_REST_IDLE);
}

TEST_F(Rests, need_a_sleep_after_the_signal_was_taken)
{
    EXPECT_EQ(look_at({'R', 0, idle}), NOT_AT_REST); // on its way into the handler
    EXPECT_EQ(look_at({'R', 0, idle}), NOT_AT_REST);
    EXPECT_EQ(look_at({'S', 0, in_callback}), AT_REST_IN_CALLBACK);
}

TEST_F(Rests, need_the_mask_of_a_wait)
{
    EXPECT_EQ(look_at({'S', 0, in_function}), NOT_AT_REST);
    EXPECT_EQ(look_at({'S', 0, in_function}), NOT_AT_REST); // a function that sleeps
    EXPECT_EQ(look_at({'S', 0, 0}), NOT_AT_REST);
    EXPECT_EQ(look_at({'S', 0, in_callback}), AT_REST_IN_CALLBACK);
}

TEST_F(Rests, need_that_no_signal_is_pending)
{
    look_at({'S', 0, in_function});
    look_at({'S', 0, in_function});
    EXPECT_EQ(look_at({'S', bit(SIGUSR2), idle}), NOT_AT_REST); // it is about to leave the wait
    EXPECT_EQ(look_at({'S', 0, idle}), AT_REST_IDLE);
}

TEST_F(Rests, are_never_seen_where_the_signal_has_no_handler)
{
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(look_at({'S', 0, idle, 0}), NOT_AT_REST);
}
