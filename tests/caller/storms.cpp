// SPDX-License-Identifier: MIT
//
// Calls and call-backs while foreign SIGUSR2 come to caller and hosts, some thousands a second to each. A host may
// perform a call again for one of them; no result and no code may be another call's. KA_CALLS sets their number.
// Where replies are signals and nothing else, a host takes each for the answer to its call-back; there the storm is
// at the caller alone.
#include <csignal>
#include <cstdlib>
#include <optional>
#include <thread>
#include <vector>

#include "caller/many_calls.h"
#include "caller/storm.h"

namespace {

constexpr useconds_t pause_us = 200;

// Of each test, of both kinds together.
int32_t calls()
{
    const char *wanted = std::getenv("KA_CALLS");
    return wanted == nullptr ? 400 : std::atoi(wanted);
}

} // namespace

class Storms : public EveryWay {
protected:
    // The program has a handler of its own, or it would be killed while no host is open.
    void SetUp() override
    {
        before_ = std::signal(SIGUSR2, [](int) {});
    }
    void TearDown() override { std::signal(SIGUSR2, before_); }
    void call_in_storm(int32_t count, int32_t first) const
    {
        Host host([this](ka_options &options) {
            layout()(options);
            adding_one(options);
        });
        call_many(host, 1);
        std::optional<Storm> at_host;
        if (default_options().transport != KA_TRANSPORT_PLAIN) at_host.emplace(ka_pid(host), pause_us);
        call_many(host, count / 2, first);
    }

private:
    void (*before_)(int) = nullptr;
};
IN_EVERY_WAY(Storms);

TEST_P(Storms, at_both_sides_change_no_result)
{
    const Storm at_caller(getpid(), pause_us);
    call_in_storm(calls(), 1);
}

TEST_P(Storms, at_both_sides_change_no_result_of_four_threads)
{
    constexpr int count = 4;
    const Storm at_caller(getpid(), pause_us);
    std::vector<std::thread> threads;
    for (int i = 0; i < count; i++)
        threads.emplace_back([this, i] { call_in_storm(calls() / count, 1 + i * calls()); });
    for (std::thread &thread : threads)
        thread.join();
}
