// SPDX-License-Identifier: MIT
//
// The life of a module: hooks, call-backs, the scratch area, and SIGTERM at any moment.
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <future>
#include <random>

#include "module/hosts_of.h"

namespace {

class Life : public ModuleTest {
protected:
    static ka::Options with_output()
    {
        ka::Options options = in_layout();
        options.error_output = KA_STDERR_RING;
        return options;
    }
    static std::int32_t shared_number(const ka::Host &host)
    {
        return __atomic_load_n(static_cast<std::int32_t *>(host.scratch().data), __ATOMIC_RELAXED);
    }
};
IN_BOTH_LAYOUTS(Life);

const std::string life_module = module_path("life");

} // namespace

TEST_P(Life, set_up_runs_before_and_clean_up_after_the_calls)
{
    ka::Options options = with_output();
    ka::Host host(life_module, options);
    std::int32_t found = 0;
    EXPECT_EQ(host.call("was_set_up", ka::ref(found)), 0);
    EXPECT_EQ(found, 42);
    ASSERT_EQ(kill(host.pid(), SIGTERM), 0);
    EXPECT_NE(host.try_call("was_set_up", ka::ref(found)).error_class, KA_DONE);
    EXPECT_EQ(host.error_output(), "sound\nstatic gone\n");
}

TEST_P(Life, call_back_is_answered)
{
    ka::Host host(life_module, with_output());
    host.on_callback([](std::int32_t value) { return value * 6; });
    std::int32_t answer = 0;
    EXPECT_EQ(host.call("ask", 7, ka::ref(answer)), 0);
    EXPECT_EQ(answer, 42);
}

TEST_P(Life, scratch_area_is_shared_if_it_is_large_enough)
{
    ka::Options options = with_output();
    options.scratch_bytes = 24;
    ka::Host host(life_module, options);
    EXPECT_EQ(host.call("share", 5), 0);
    EXPECT_EQ(host.call("share", 6), 0);
    EXPECT_EQ(shared_number(host), 11);
    for (const std::int32_t too_small : {0, 23}) {
        options.scratch_bytes = too_small;
        ka::Host other(life_module, options);
        EXPECT_EQ(other.call("share", 5), 1001) << too_small;
    }
}

TEST_P(Life, sigterm_comes_while_a_call_back_waits)
{
    ka::Host host(life_module, with_output());
    host.on_callback([&](std::int32_t) { return kill(host.pid(), SIGTERM); });
    EXPECT_NE(host.try_call("ask_while_held").error_class, KA_DONE);
    EXPECT_EQ(host.error_output(), "sound\nstatic gone\n");
}

TEST_P(Life, sigterm_is_held_again_after_a_call_back)
{
    ka::Host host(life_module, with_output());
    EXPECT_NE(host.try_call("ask_while_held").error_class, KA_DONE);
    EXPECT_EQ(host.error_output(), "still held\nsound\nstatic gone\n");
}

TEST_P(Life, sigkill_comes_after_the_grace_time_all_the_same)
{
    ka::Options options = with_output();
    options.deadline_ms = 500;
    options.grace_ms = 10;
    ka::Host host(life_module, options);
    const pid_t pid = host.pid();
    EXPECT_EQ(host.try_call("hold_for_ever").error_class, KA_DEADLINE);
    EXPECT_EQ(shared_number(host), 1);
    EXPECT_TRUE(ends(pid));
    EXPECT_EQ(host.error_output(), ""); // so it was not SIGTERM
}

// Each of a thousand processes is ended somewhere in the middle.
TEST(LifeOfMany, sigterm_at_a_thousand_moments_finds_what_is_held_together_sound)
{
    std::mt19937_64 draw(20261125);
    ka::Options options;
    options.error_output = KA_STDERR_RING;
    for (int round = 0; round < 1000 && !testing::Test::HasFailure(); round++) {
        ka::Host host(life_module, options);
        auto *const rounds = static_cast<std::int32_t *>(host.scratch().data);
        const pid_t pid = host.pid();
        auto end = std::async(std::launch::async, [&] {
            const auto wanted = static_cast<std::int32_t>(1 + draw() % 2000);
            while (__atomic_load_n(rounds, __ATOMIC_RELAXED) < wanted)
                sched_yield();
            return kill(pid, SIGTERM);
        });
        EXPECT_NE(host.try_call("allocate_for_ever").error_class, KA_DONE);
        EXPECT_EQ(end.get(), 0);
        EXPECT_EQ(host.error_output(), "sound\nstatic gone\n") << round;
    }
}
