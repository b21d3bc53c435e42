// SPDX-License-Identifier: MIT
//
// Hosts opened and closed in large numbers, ended in every way: nothing is left of them in this process or beside it.
#include <csignal>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "caller/hosts.h"
#include "scale/scale.h"

namespace {

// One life of a host; what follows is how it ends.
using Life = void (*)(int32_t waiting);

std::function<void(ka_options &)> in_mode(int32_t waiting)
{
    return [waiting](ka_options &options) { options.waiting = waiting; };
}

void closed_at_once(int32_t waiting)
{
    const Host host(in_mode(waiting));
}

void closed_after_a_call(int32_t waiting)
{
    const Host host(in_mode(waiting));
    ASSERT_EQ(call_with(host, "ask", 7), 0);
}

void dies_in_a_call(int32_t waiting)
{
    const Host host(in_mode(waiting));
    ka_begin(host, "die_by");
    ka_add_integer(host, SIGSEGV, KA_BY_VALUE);
    ASSERT_EQ(call_fails(host), KA_DIED);
}

void is_killed_between_calls(int32_t waiting)
{
    const Host host(in_mode(waiting));
    kill(ka_pid(host), SIGKILL);
    ka_begin(host, "count_call");
    ASSERT_EQ(call_fails(host), KA_DIED);
}

// In the start or in the call.
void answers_too_late(int32_t waiting)
{
    ka_options options = default_options();
    options.waiting = waiting;
    options.deadline_ms = 5;
    ka_host *host;
    int32_t status = ka_open(&host, tasks_module.c_str(), &options);
    if (status == KA_DONE) {
        ka_begin(host, "hang");
        status = call_fails(host);
    }
    ka_close(host);
    ASSERT_EQ(status, KA_DEADLINE);
}

void is_cancelled(int32_t waiting)
{
    const int fd = eventfd(1, EFD_CLOEXEC);
    ka_options options = default_options();
    options.waiting = waiting;
    options.cancel_fd = fd;
    ka_host *host;
    ASSERT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_CANCELLED);
    ka_close(host);
    close(fd);
}

void does_not_start(int32_t waiting)
{
    ka_options options = default_options();
    options.waiting = waiting;
    ka_host *host;
    ASSERT_EQ(ka_open(&host, no_loader_module.c_str(), &options), KA_START);
    ka_close(host);
}

void keeps_its_standard_error(int32_t waiting)
{
    const Host host([&](ka_options &options) {
        options.waiting = waiting;
        options.error_output = KA_STDERR_RING;
        options.trace_level = 4;
    });
    ASSERT_EQ(call_with(host, "give_code", 3), 3);
}

void starts_again(int32_t waiting)
{
    const Host host([&](ka_options &options) {
        options.waiting = waiting;
        options.restart = KA_RESTART_NEXT_CALL;
        options.restart_pause_ms = 0;
    });
    // In a call: one that is dead before a call is started again by that call.
    ka_begin(host, "die_by");
    ka_add_integer(host, SIGKILL, KA_BY_VALUE);
    ASSERT_EQ(call_fails(host), KA_DIED);
    ka_begin(host, "count_call");
    ASSERT_EQ(call(host), 1);
}

struct Way {
    const char *name;
    Life live;
};

constexpr Way ways[] = {
    {"closed_at_once", closed_at_once},     {"closed_after_a_call", closed_after_a_call},
    {"dies_in_a_call", dies_in_a_call},     {"is_killed_between_calls", is_killed_between_calls},
    {"answers_too_late", answers_too_late}, {"is_cancelled", is_cancelled},
    {"does_not_start", does_not_start},     {"keeps_its_standard_error", keeps_its_standard_error},
    {"starts_again", starts_again},
};

constexpr int32_t kept_records = 64;

size_t allocated()
{
    return mallinfo2().uordblks;
}

class ManyLives : public testing::TestWithParam<int32_t> {};
INSTANTIATE_TEST_SUITE_P(Waiting, ManyLives, testing::Values(KA_WAIT_SAFE, KA_WAIT_FAST),
                         [](const auto &mode) { return mode.param == KA_WAIT_SAFE ? "safe" : "fast"; });

} // namespace

TEST_P(ManyLives, leave_nothing)
{
    const auto live = [&](int32_t i) { ways[static_cast<size_t>(i) % std::size(ways)].live(GetParam()); };
    // The library's own thread, which safe waiting needs, stays.
    const int threads = GetParam() == KA_WAIT_SAFE ? 2 : Belongings::now().threads;
    // Records of closed hosts are kept until many others have followed.
    for (int32_t i = 0; i < kept_records; i++)
        closed_at_once(GetParam());
    for (int32_t i = 0; i < static_cast<int32_t>(std::size(ways)); i++)
        live(i);
    // One that has been waited for is listed for a moment longer.
    ASSERT_TRUE(becomes_true([&] { return Belongings::now().threads == threads; }));
    const Belongings before = Belongings::now();
    const size_t memory = allocated();
    const int32_t count = rounds(90);
    {
        const Timed timed("lives of hosts", count);
        for (int32_t i = 0; i < count; i++) {
            live(i);
            ASSERT_FALSE(HasFailure()) << ways[static_cast<size_t>(i) % std::size(ways)].name << ", life " << i;
        }
    }
    EXPECT_TRUE(back_to(before));
    EXPECT_LE(allocated(), memory + 4096) << "of memory, a page is left for what the C library keeps";
}
