// SPDX-License-Identifier: MIT
//
// May a call that failed be made again? Every class of errors, before and after the request was sent where both
// exist.
#include "caller/hosts.h"

#include <csignal>
#include <sys/eventfd.h>
#include <unistd.h>

static int32_t retry_of(ka_host *host)
{
    return ka_last_error(host)->retry;
}

static void begin_with(ka_host *host, const char *function, int32_t number)
{
    ka_begin(host, function);
    ka_add_integer(host, number, KA_BY_VALUE);
}

TEST(Retry, after_a_failed_start_is_useless)
{
    ka_host *host;
    EXPECT_EQ(ka_open(&host, no_loader_module.c_str(), nullptr), KA_START);
    EXPECT_EQ(retry_of(host), KA_RETRY_NO);
    ka_close(host);
}

TEST(Retry, after_an_end_at_start_is_useless_though_a_request_was_sent)
{
    Host host({}, no_library_module);
    ka_begin(host, "add");
    EXPECT_EQ(call_fails(host), KA_START);
    EXPECT_EQ(retry_of(host), KA_RETRY_NO);
}

TEST(Retry, of_a_call_that_is_too_big_is_useless)
{
    Host host;
    const std::vector<int32_t> many(1 << 20);
    ka_begin(host, "double");
    EXPECT_EQ(ka_add_integers(host, many.data(), 1 << 20, KA_BY_REFERENCE), KA_TOO_BIG);
    EXPECT_EQ(retry_of(host), KA_RETRY_NO);
    EXPECT_EQ(call_fails(host), KA_TOO_BIG);
    EXPECT_EQ(retry_of(host), KA_RETRY_NO);
}

TEST(Retry, after_a_bad_argument_is_useless)
{
    Host host;
    ka_begin(host, "double");
    EXPECT_EQ(ka_add_integers(host, nullptr, -1, KA_BY_VALUE), KA_ARGUMENT);
    EXPECT_EQ(retry_of(host), KA_RETRY_NO);
}

TEST(Retry, after_a_death_in_the_call_may_repeat_effects)
{
    Host host;
    begin_with(host, "die_by", SIGKILL);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(retry_of(host), KA_RETRY_UNSURE);
}

TEST(Retry, after_a_death_before_the_call_is_safe)
{
    Host host;
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    const pid_t pid = ka_pid(host);
    kill(pid, SIGKILL);
    ASSERT_TRUE(ends(pid));
    begin_with(host, "give_code", 1);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(retry_of(host), KA_RETRY_YES);
}

TEST(Retry, on_a_host_that_will_not_come_back_fails_for_ever)
{
    Host host;
    begin_with(host, "leave", 3);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(ka_begin(host, "add"), KA_CLOSED);
    EXPECT_EQ(retry_of(host), KA_RETRY_NO);
    EXPECT_EQ(call_fails(host), KA_CLOSED);
    EXPECT_EQ(retry_of(host), KA_RETRY_NO);
}

TEST(Retry, on_a_host_that_the_next_call_starts_again_is_safe)
{
    Host host([](ka_options &options) { options.restart = KA_RESTART_NEXT_CALL; });
    begin_with(host, "leave", 3);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(ka_add_integer(host, 1, KA_BY_VALUE), KA_CLOSED);
    EXPECT_EQ(retry_of(host), KA_RETRY_YES);
    EXPECT_EQ(call_with(host, "give_code", 4), 4);
}

// A program that repeats whatever it may repeat comes to an end.
TEST(Retry, a_loop_that_obeys_it_ends)
{
    Host host;
    const pid_t pid = ka_pid(host);
    kill(pid, SIGKILL);
    ASSERT_TRUE(ends(pid));
    int32_t status = KA_DONE;
    int calls = 0;
    do {
        begin_with(host, "give_code", 4);
        status = call_fails(host);
        calls++;
    } while (status != KA_DONE && retry_of(host) == KA_RETRY_YES && calls < 10);
    EXPECT_EQ(status, KA_CLOSED);
    EXPECT_EQ(calls, 2);
}

TEST(Retry, after_a_deadline_in_the_call_may_repeat_effects)
{
    Host host;
    begin_with(host, "give_code", 0);
    EXPECT_EQ(call(host), 0);
    ka_set_deadline(host, 500);
    ka_begin(host, "hang");
    EXPECT_EQ(call_fails(host), KA_DEADLINE);
    EXPECT_EQ(retry_of(host), KA_RETRY_UNSURE);
}

TEST(Retry, after_a_deadline_in_a_pause_before_the_call_is_safe)
{
    Host host([](ka_options &options) {
        options.restart = KA_RESTART_NEXT_CALL;
        options.restart_pause_ms = options.restart_pause_max_ms = 60000;
        options.deadline_ms = 500;
    });
    begin_with(host, "leave", 3);
    EXPECT_EQ(call_fails(host), KA_DIED);
    begin_with(host, "give_code", 3);
    EXPECT_EQ(call_fails(host), KA_DEADLINE);
    EXPECT_EQ(retry_of(host), KA_RETRY_YES);
}

TEST(Retry, of_a_cancelled_call_depends_on_whether_it_was_sent)
{
    static int event;
    event = eventfd(0, EFD_CLOEXEC);
    const auto cancellable = [](ka_options &options) {
        options.cancel_fd = event;
        options.callback = [](ka_host *, int32_t, void *) -> int32_t { return eventfd_write(event, 1); };
    };
    {
        Host host(cancellable);
        ka_begin(host, "ask_many");
        ka_add_integer(host, 1000000, KA_BY_VALUE);
        ka_add_integer(host, 0, KA_BY_REFERENCE);
        EXPECT_EQ(call_fails(host), KA_CANCELLED);
        EXPECT_EQ(retry_of(host), KA_RETRY_UNSURE);
        eventfd_t count;
        eventfd_read(event, &count);
    }
    {
        Host host(cancellable);
        begin_with(host, "give_code", 2);
        eventfd_write(event, 1);
        EXPECT_EQ(call_fails(host), KA_CANCELLED);
        EXPECT_EQ(retry_of(host), KA_RETRY_YES);
    }
    close(event);
}

TEST(Retry, when_the_system_refuses_is_safe_before_the_request)
{
    ka_options options = default_options();
    options.segment_bytes = INT32_MAX - 10000;
    options.scratch_bytes = 0;
    ka_host *host;
    const int32_t status = ka_open(&host, tasks_module.c_str(), &options);
    if (status == KA_SYSTEM) {
        EXPECT_EQ(retry_of(host), KA_RETRY_YES);
    }
    ka_close(host);
    EXPECT_EQ(ka_last_error(nullptr)->retry, KA_RETRY_YES);
}

TEST(Retry, of_an_error_of_an_earlier_call_does_not_show_in_the_next)
{
    Host host([](ka_options &options) { options.restart = KA_RESTART_NEXT_CALL; });
    begin_with(host, "leave", 3);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(retry_of(host), KA_RETRY_UNSURE);
    EXPECT_EQ(call_with(host, "give_code", 4), 4);
    EXPECT_EQ(retry_of(host), KA_RETRY_NO);
    EXPECT_EQ(error_text(host), "");
}
