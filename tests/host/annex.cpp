// SPDX-License-Identifier: MIT
//
// The annex behind the block, from a caller that has made one by hand: when a host uses it, what it tells there, and
// that a host without one is as ever.
#include "wire/annex.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include "host/probe.h"
#include "host/probe_mailbox.h"
#include "ka/dll_codes.h"

namespace {

using namespace harness;

constexpr int32_t block_bytes = 65536;
constexpr int32_t segment_bytes = block_bytes + static_cast<int32_t>(wire::ANNEX_MARK);

// A block that ends where the annex begins. Without arguments its calls are refused, which is a reply like any other.
class AnnexIn : public testing::TestWithParam<Layout> {
protected:
    AnnexIn()
    {
        block.set(Head::shmsz, block_bytes);
        make_annex();
    }
    void make_annex()
    {
        annex() = {};
        std::memcpy(annex().magic, wire::ANNEX_MAGIC, sizeof annex().magic);
        annex().caller = getpid();
    }
    t_ANNEX &annex() { return *static_cast<t_ANNEX *>(static_cast<void *>(block.at(block_bytes))); }
    uint32_t word(const uint32_t &of_annex) { return __atomic_load_n(&of_annex, __ATOMIC_SEQ_CST); }

    void count_request() { __atomic_add_fetch(&annex().request, 1, __ATOMIC_SEQ_CST); }
    void request(Probe &host)
    {
        count_request();
        host.ring();
    }
    void count_answer()
    {
        annex().answers = 1;
        count_request();
    }
    bool offers_it(Probe &host) { return __atomic_load_n(&annex().host, __ATOMIC_SEQ_CST) == host.pid(); }

    Block block{GetParam(), segment_bytes};
};
INSTANTIATE_TEST_SUITE_P(Layouts, AnnexIn, testing::Values(Layout::native, Layout::layout_64));

} // namespace

TEST_P(AnnexIn, is_offered_with_a_host_that_is_ready_and_lives)
{
    Probe host(Probe::Idle{}, block);
    host.await_idle();
    EXPECT_TRUE(offers_it(host));
    EXPECT_EQ(word(annex().life), static_cast<uint32_t>(host.pid()));
    EXPECT_EQ(word(annex().started), 0u);
}

TEST_P(AnnexIn, replies_carry_the_number_of_their_request_and_no_signal)
{
    Probe host(Probe::Idle{}, block);
    host.await_idle();
    for (uint32_t number = 1; number <= 3; number++) {
        request(host);
        host.await([&] { return word(annex().reply) == wire::reply_to(number, false); }, "the reply");
        EXPECT_EQ(block.get(Head::retcode), KA_WRONG_COUNT);
        EXPECT_EQ(word(annex().started), number);
        EXPECT_EQ(word(annex().done), number);
    }
    host.await_idle();
    EXPECT_FALSE(host.has_signalled());
}

TEST_P(AnnexIn, a_signal_comes_too_when_it_is_wanted)
{
    Probe host(Probe::Idle{}, block);
    host.await_idle();
    annex().wants_signal = 1;
    request(host);
    host.await_signal();
    EXPECT_EQ(word(annex().reply), wire::reply_to(1, false));
}

TEST_P(AnnexIn, a_signal_of_the_caller_without_a_request_performs_nothing)
{
    Probe host(Probe::Idle{}, block);
    host.await_idle();
    host.ring();
    host.await_idle();
    EXPECT_EQ(word(annex().started), 0u);
    request(host);
    host.await([&] { return word(annex().done) == 1; }, "the call");
}

TEST_P(AnnexIn, a_signal_of_anyone_else_does_what_it_does_without)
{
    Probe host(Probe::Idle{}, block);
    host.await_idle();
    block.set(Head::retcode, 1234);
    host.ring_from_elsewhere();
    host.await([&] { return word(annex().done) == 1; }, "the call");
    EXPECT_EQ(block.get(Head::retcode), KA_WRONG_COUNT);
    EXPECT_EQ(word(annex().reply), wire::reply_to(0, false)); // of no request
}

TEST_P(AnnexIn, the_answer_to_a_callback_is_counted)
{
    place(block, "serve", {});
    make_annex(); // where the block has been filled
    Probe host(Probe::Idle{}, block);
    host.await_idle();
    request(host);
    host.ask(PROBE_BASE); // it is in its function
    annex().wants_signal = 1;
    host.begin(PROBE_CALLBACK, 7);
    host.await_signal();
    EXPECT_EQ(word(annex().reply), wire::reply_to(1, true));
    host.ring_from_elsewhere();
    host.await_idle(); // it waits on
    EXPECT_EQ(word(annex().done), 0u);
    count_answer();
    host.answer(70);
    EXPECT_EQ(host.finish(), 70);
}

// It began the call between the last thing that the caller wrote for it and the number of its request.
TEST_P(AnnexIn, the_request_of_a_call_that_a_foreign_signal_has_begun_is_no_answer)
{
    place(block, "serve", {});
    make_annex();
    Probe host(Probe::Idle{}, block);
    host.await_idle();
    host.ring_from_elsewhere();
    host.ask(PROBE_BASE);
    host.begin(PROBE_CALLBACK, 7);
    host.await([&] { return word(annex().reply) == wire::reply_to(0, true); }, "the call-back");
    host.await_idle();
    request(host);
    host.await([&] { return word(annex().reply) == wire::reply_to(1, true); }, "the same call-back");
    EXPECT_EQ(block.get(Head::cbval), 7);
    count_answer();
    host.answer(70);
    EXPECT_EQ(host.finish(), 70);
}

TEST_P(AnnexIn, life_is_marked_by_every_death)
{
    Probe host(Probe::Idle{}, block);
    host.await_idle();
    kill(host.pid(), SIGKILL);
    host.await_end();
    EXPECT_EQ(word(annex().life), wire::LIFE_OWNER_DIED);
}

TEST_P(AnnexIn, life_is_given_back_at_the_end)
{
    Probe host(Probe::Idle{}, block);
    host.await_idle();
    EXPECT_EQ(host.terminate(), exited(0));
    EXPECT_EQ(word(annex().life), 0u);
}

// A segment of that size that another caller has made: whatever lies there.
TEST_P(AnnexIn, another_callers_bytes_are_no_annex)
{
    annex().magic[7]++;
    const std::string before(block.at(block_bytes), sizeof(t_ANNEX));
    Probe host(Probe::Idle{}, block);
    host.await_idle();
    host.ring();
    host.await_signal();
    host.await_idle();
    EXPECT_EQ(std::string(block.at(block_bytes), sizeof(t_ANNEX)), before);
}

TEST_P(AnnexIn, one_inside_the_block_is_none)
{
    block.set(Head::shmsz, block_bytes + 1);
    Probe host(Probe::Idle{}, block);
    host.await_idle();
    EXPECT_FALSE(offers_it(host));
}
