// SPDX-License-Identifier: MIT
//
// Hosts that are started again: when, with what, and how often.
#include "caller/hosts.h"

#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

#include "caller/waiting.h"

using Clock = std::chrono::steady_clock;

static std::function<void(ka_options &)> policy(int32_t restart, int32_t pause_ms = 0, int32_t layout = 0)
{
    return [=](ka_options &options) {
        options.restart = restart;
        options.restart_pause_ms = pause_ms;
        options.layout = layout;
    };
}

static void begin_leave(ka_host *host)
{
    ka_begin(host, "leave");
    ka_add_integer(host, 3, KA_BY_VALUE);
}

static int32_t count_call(ka_host *host)
{
    ka_begin(host, "count_call");
    return call(host);
}

static void end_by_force(ka_host *host)
{
    const pid_t pid = ka_pid(host);
    kill(pid, SIGKILL);
    ASSERT_TRUE(ends(pid));
}

class Restart : public BothLayouts {};
IN_BOTH_LAYOUTS(Restart);

TEST_P(Restart, at_the_next_call_gives_a_new_process)
{
    Host host(policy(KA_RESTART_NEXT_CALL, 0, GetParam()));
    EXPECT_EQ(count_call(host), 1);
    EXPECT_EQ(count_call(host), 2);
    begin_leave(host);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(ka_pid(host), 0);
    EXPECT_EQ(count_call(host), 1);
    EXPECT_NE(ka_pid(host), 0);
}

TEST_P(Restart, at_once_happens_in_the_call_that_fails)
{
    Host host(policy(KA_RESTART_AT_ONCE, 0, GetParam()));
    EXPECT_EQ(count_call(host), 1);
    const pid_t before = ka_pid(host);
    begin_leave(host);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(ka_last_error(host)->exit_status, 3);
    EXPECT_NE(ka_pid(host), 0);
    EXPECT_NE(ka_pid(host), before);
    EXPECT_EQ(kill(before, 0), -1);
    EXPECT_EQ(count_call(host), 1);
}

TEST_P(Restart, makes_a_call_that_was_built_before_the_death)
{
    for (int32_t restart : {KA_RESTART_NEXT_CALL, KA_RESTART_AT_ONCE}) {
        Host host(policy(restart, 0, GetParam()));
        EXPECT_EQ(count_call(host), 1);
        ka_begin(host, "add");
        ka_add_integer(host, 40, KA_BY_VALUE);
        ka_add_integer(host, 2, KA_BY_VALUE);
        ka_add_integer(host, 0, KA_BY_REFERENCE);
        end_by_force(host);
        EXPECT_EQ(call(host), 0);
        EXPECT_EQ(integers(host, 3, 1)[0], 42);
        EXPECT_EQ(error_text(host), "");
    }
}

TEST_P(Restart, keeps_the_scratch_area)
{
    Host host(policy(KA_RESTART_NEXT_CALL, 0, GetParam()));
    char *scratch = static_cast<char *>(ka_scratch(host, nullptr));
    strcpy(scratch, "kept");
    begin_leave(host);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(ka_scratch(host, nullptr), scratch);
    EXPECT_STREQ(scratch, "kept");
    EXPECT_EQ(count_call(host), 1);
    EXPECT_STREQ(scratch, "kept");
    EXPECT_EQ(call_with(host, "scratch_room", 4), 1);
    EXPECT_STREQ(scratch, "ssss");
}

TEST_P(Restart, repairs_a_block_that_the_dead_module_has_spoilt)
{
    Host host(policy(KA_RESTART_NEXT_CALL, 0, GetParam()));
    ka_begin(host, "scribble");
    ka_add_integer(host, offset_of_descriptors(), KA_BY_REFERENCE);
    ka_add_integer(host, descriptor_size(), KA_BY_VALUE);
    EXPECT_EQ(call(host), 0);
    end_by_force(host);
    EXPECT_EQ(count_call(host), 1);
}

TEST_P(Restart, follows_a_passed_deadline)
{
    Host host([&](ka_options &options) {
        policy(KA_RESTART_AT_ONCE, 0, GetParam())(options);
        options.deadline_ms = 2000;
    });
    EXPECT_EQ(count_call(host), 1);
    ka_begin(host, "hang");
    EXPECT_EQ(call_fails(host), KA_DEADLINE);
    EXPECT_NE(ka_pid(host), 0);
    ka_set_deadline(host, 30000);
    EXPECT_EQ(count_call(host), 1);
}

TEST_P(Restart, follows_a_cancellation)
{
    const int event = eventfd(0, EFD_CLOEXEC);
    {
        Host host([&](ka_options &options) {
            policy(KA_RESTART_AT_ONCE, 0, GetParam())(options);
            options.cancel_fd = event;
        });
        EXPECT_EQ(count_call(host), 1);
        ka_begin(host, "hang");
        eventfd_write(event, 1);
        EXPECT_EQ(call_fails(host), KA_CANCELLED);
        EXPECT_NE(ka_pid(host), 0);
        eventfd_t count;
        eventfd_read(event, &count);
        EXPECT_EQ(count_call(host), 1);
        eventfd_write(event, 1);
        ka_begin(host, "count_call");
        EXPECT_EQ(call_fails(host), KA_CANCELLED) << "cancel_fd counts after a restart too";
    }
    close(event);
}

// ---- Pauses: only ever longer than asked for, so lower bounds can be tested ------------------------------------

TEST(RestartPause, at_once_waits_for_the_next_call_when_it_is_too_soon)
{
    Host host(policy(KA_RESTART_AT_ONCE, 60000));
    begin_leave(host);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(ka_pid(host), 0);
}

TEST(RestartPause, is_counted_from_start_to_start_and_doubled_by_each_death)
{
    const Clock::time_point begin = Clock::now();
    Host host(policy(KA_RESTART_NEXT_CALL, 100));
    const int64_t expected_ms[] = {0, 100, 300, 700}; // pauses of 100, 200, 400
    for (int64_t earliest : expected_ms) {
        begin_leave(host);
        EXPECT_EQ(call_fails(host), KA_DIED);
        EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(earliest));
    }
}

TEST(RestartPause, has_a_longest)
{
    Host host([](ka_options &options) {
        options.restart = KA_RESTART_NEXT_CALL;
        options.restart_pause_ms = 1;
        options.restart_pause_max_ms = 2;
        options.deadline_ms = 10000;
    });
    for (int i = 0; i < 50; i++) {
        begin_leave(host);
        ASSERT_EQ(call_fails(host), KA_DIED);
    }
}

TEST(RestartPause, is_short_again_after_a_call_that_succeeded)
{
    Host host([](ka_options &options) {
        options.restart = KA_RESTART_NEXT_CALL;
        options.restart_pause_ms = 1;
        options.restart_pause_max_ms = 600000;
    });
    for (int i = 0; i < 30; i++) { // without the reset, the last pauses would take days
        begin_leave(host);
        ASSERT_EQ(call_fails(host), KA_DIED) << error_text(host);
        ASSERT_EQ(count_call(host), 1);
    }
}

// A pause of ten minutes: whatever happens, the deadline comes first.
TEST(RestartPause, beyond_the_deadline_fails_and_leaves_the_host_usable)
{
    Host host([](ka_options &options) {
        policy(KA_RESTART_NEXT_CALL, 600000)(options);
        options.restart_pause_max_ms = 600000;
    });
    begin_leave(host);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(ka_set_deadline(host, 1), KA_DONE);
    for (int i = 0; i < 2; i++) {
        ASSERT_EQ(ka_begin(host, "count_call"), KA_DONE) << error_text(host);
        EXPECT_EQ(call_fails(host), KA_DEADLINE);
        EXPECT_NE(error_text(host).find("not started again within 1 ms"), std::string::npos) << error_text(host);
    }
    EXPECT_EQ(ka_set_deadline(host, 30000), KA_DONE);
    EXPECT_EQ(ka_restart(host), KA_DONE) << error_text(host);
    EXPECT_EQ(count_call(host), 1);
}

TEST(RestartPause, can_be_cancelled)
{
    const int event = eventfd(0, EFD_CLOEXEC);
    {
        Host host([event](ka_options &options) {
            policy(KA_RESTART_NEXT_CALL, 60000)(options);
            options.cancel_fd = event;
        });
        begin_leave(host);
        EXPECT_EQ(call_fails(host), KA_DIED);
        std::thread canceller([event] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            eventfd_write(event, 1);
        });
        ka_begin(host, "count_call");
        EXPECT_EQ(call_fails(host), KA_CANCELLED);
        canceller.join();
    }
    close(event);
}

TEST(RestartPause, options_out_of_range_are_refused)
{
    const auto opens = [](const std::function<void(ka_options &)> &adjust) {
        ka_options options = default_options();
        adjust(options);
        ka_host *host;
        const int32_t status = ka_open(&host, tasks_module.c_str(), &options);
        ka_close(host);
        return status;
    };
    EXPECT_EQ(opens([](ka_options &options) { options.restart = 3; }), KA_ARGUMENT);
    EXPECT_EQ(opens([](ka_options &options) { options.restart = -1; }), KA_ARGUMENT);
    EXPECT_EQ(opens([](ka_options &options) { options.restart_pause_ms = -1; }), KA_ARGUMENT);
    EXPECT_EQ(opens([](ka_options &options) { options.restart_pause_max_ms = -1; }), KA_ARGUMENT);
}

// ---- Deaths at start -------------------------------------------------------------------------------------------

TEST(RestartAfterStart, that_failed_tries_again)
{
    setenv("KA_TEST_SETUP", "exit3", 1);
    Host host(policy(KA_RESTART_NEXT_CALL));
    for (int i = 0; i < 3; i++) {
        ka_begin(host, "count_call");
        EXPECT_EQ(call_fails(host), KA_DIED);
    }
    unsetenv("KA_TEST_SETUP");
    EXPECT_EQ(count_call(host), 1);
}

TEST(RestartAfterStart, tells_when_the_module_has_vanished_meanwhile)
{
    const std::string copy = "/tmp/ka_test_module_" + std::to_string(getpid());
    std::filesystem::copy_file(tasks_module, copy, std::filesystem::copy_options::overwrite_existing);
    setenv("LD_LIBRARY_PATH", library_folder(CALLER_BUILD).c_str(), 1);
    {
        Host host(policy(KA_RESTART_NEXT_CALL), copy);
        EXPECT_EQ(count_call(host), 1);
        std::filesystem::rename(copy, copy + ".away");
        end_by_force(host);
        ka_begin(host, "count_call");
        EXPECT_EQ(call_fails(host), KA_START);
        EXPECT_EQ(ka_pid(host), 0);
        std::filesystem::rename(copy + ".away", copy);
        EXPECT_EQ(count_call(host), 1);
    }
    unsetenv("LD_LIBRARY_PATH");
    std::filesystem::remove(copy);
}

// ---- ka_restart ------------------------------------------------------------------------------------------------

TEST(RestartByHand, replaces_a_living_host)
{
    Host host;
    EXPECT_EQ(count_call(host), 1);
    const pid_t before = ka_pid(host);
    ka_begin(host, "count_call");
    EXPECT_EQ(ka_restart(host), KA_DONE);
    EXPECT_EQ(kill(before, 0), -1);
    EXPECT_NE(ka_pid(host), before);
    EXPECT_EQ(call_fails(host), KA_ARGUMENT) << "the call that was begun is forgotten";
    EXPECT_EQ(count_call(host), 1);
}

TEST(RestartByHand, starts_a_dead_host_whatever_the_policy_and_without_a_pause)
{
    Host host(policy(KA_RESTART_NEVER, 60000));
    begin_leave(host);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(ka_restart(host), KA_DONE);
    EXPECT_EQ(error_text(host), "");
    EXPECT_EQ(count_call(host), 1);
}

TEST(RestartByHand, is_refused_inside_a_callback)
{
    static int32_t answer;
    Host host([](ka_options &options) {
        options.callback = [](ka_host *inner, int32_t, void *) {
            answer = ka_restart(inner);
            return 5;
        };
    });
    EXPECT_EQ(call_with(host, "ask", 1), 5);
    EXPECT_EQ(answer, KA_ARGUMENT);
}

TEST(RestartByHand, tries_again_what_could_not_be_opened)
{
    ka_host *host;
    EXPECT_EQ(ka_open(&host, "/no/such/module", nullptr), KA_START);
    EXPECT_EQ(ka_restart(host), KA_START);
    ka_close(host);
    ka_options options = default_options();
    options.deadline_ms = 0;
    EXPECT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_ARGUMENT);
    EXPECT_EQ(ka_restart(host), KA_ARGUMENT);
    ka_close(host);
}

TEST(RestartByHand, leaves_no_descriptor_and_no_process)
{
    Host host;
    EXPECT_EQ(count_call(host), 1);
    const int before = open_descriptors();
    const int segment = segment_of(ka_pid(host));
    for (int i = 0; i < 30; i++) {
        const pid_t pid = ka_pid(host);
        if (i % 2 == 0) {
            begin_leave(host);
            EXPECT_EQ(call_fails(host), KA_DIED);
        }
        ASSERT_EQ(ka_restart(host), KA_DONE);
        ASSERT_EQ(kill(pid, 0), -1);
        ASSERT_EQ(open_descriptors(), before);
        ASSERT_EQ(segment_of(ka_pid(host)), segment);
    }
}
