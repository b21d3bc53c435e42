// SPDX-License-Identifier: MIT
//
// The reason of a return code, which a function writes on standard error: found there when it is that of this
// function and this call.
#include "caller/hosts.h"

#include <nlohmann/json.hpp>
#include <unistd.h>

#include "ka/caller.hpp"

namespace {

class Reasons : public testing::TestWithParam<int32_t> {
protected:
    static ka::Options with(int32_t reasons, int32_t ring_bytes = 1 << 16)
    {
        ka::Options options;
        options.waiting = GetParam();
        options.error_output = KA_STDERR_RING;
        options.ring_bytes = ring_bytes;
        options.reasons = reasons;
        return options;
    }
    std::string reason(const std::string &text, int32_t code = 1001, const char *function = "say")
    {
        EXPECT_EQ(host.call(function, code, text), code);
        return host.reason();
    }
    ka::Host host{module_path("reasons"), with(KA_REASONS_ON)};
};
INSTANTIATE_TEST_SUITE_P(Waiting, Reasons, testing::Values(KA_WAIT_SAFE, KA_WAIT_FAST),
                         [](const auto &mode) { return mode.param == KA_WAIT_SAFE ? "safe" : "fast"; });

} // namespace

TEST_P(Reasons, are_the_lines_of_the_function)
{
    EXPECT_EQ(host.reason(), "");
    EXPECT_EQ(ka_reason(host.get()), nullptr);
    EXPECT_EQ(reason("ka: say: the book is closed\n"), "the book is closed");
    EXPECT_STREQ(ka_reason(host.get()), "the book is closed");
    EXPECT_EQ(reason("before\nka: say: one\nka: say: two: three\nafter"), "two: three");
    EXPECT_EQ(reason("ka: say_more: more\n", -7, "say_more"), "more");
    EXPECT_EQ(reason("ka: a \x1b[31mname: : why\n", 1, "a \x1b[31mname: "), "why");
}

TEST_P(Reasons, are_none_of_other_lines)
{
    for (const char *text :
         {"", "the book is closed\n", "ka: say: no end", "ka: say:\n", "ka: say: \n", "ka: say:why\n",
          " ka: say: why\n", "say: why\n", "ka: say_more: why\n", "ka: sa: why\n", "ka: Say: why\n", "KA: say: why\n",
          "ka: : why\n", "ka:say: why\n", "x\nxka: say: why\n"})
        EXPECT_EQ(reason(text), "") << text;
}

TEST_P(Reasons, are_none_of_an_earlier_call)
{
    for (int round = 0; round < 100; round++) {
        ASSERT_EQ(reason("ka: say: first\n"), "first");
        ASSERT_EQ(reason(""), "") << round;
        ASSERT_EQ(reason("ka: say: of no failure\n", 0), "");
        ASSERT_EQ(reason(""), "") << round;
    }
    EXPECT_EQ(reason("ka: say: fi"), "");
    EXPECT_EQ(reason("rst\n"), "") << "a line of two calls";
    EXPECT_EQ(reason("ka: say: why\n"), "why");
    host.begin("say");
    EXPECT_EQ(host.reason(), "");
}

TEST_P(Reasons, are_fit_to_be_shown_and_no_longer_than_there_is_room)
{
    EXPECT_EQ(reason("ka: say: \xc3\xa4 \x1b[31m\xff\t\r\xe2\x80\xae\n"),
              "\xc3\xa4 \\x1b[31m\\xff\\x09\\x0d\\xe2\\x80\\xae");
    EXPECT_EQ(reason("ka: say: " + std::string(511, '\x01') + "\n").size(), 4u * 511);
    EXPECT_EQ(reason("ka: say: " + std::string(9000, 'x') + "\n"), std::string(2047, 'x'));
    EXPECT_EQ(reason("ka: say: a" + std::string(1, '\0') + "b\n"), "a"); // a text ends there
}

// Of a line whose beginning the ring has dropped, its end may look like another one.
TEST_P(Reasons, are_found_in_what_the_ring_has_kept)
{
    ka::Host small(module_path("reasons"), with(KA_REASONS_ON, 32));
    const auto reason_in_ring = [&](const std::string &text) {
        EXPECT_EQ(small.call("say", 5, text), 5);
        return small.reason();
    };
    EXPECT_EQ(reason_in_ring(std::string(1000, 'x') + "\nka: say: why\n"), "why");
    EXPECT_EQ(reason_in_ring(std::string(1000, 'x') + ("ka: say: " + std::string(22, 'y') + "\n")), "");
    EXPECT_EQ(reason_in_ring("ka: say: " + std::string(22, 'y') + "\n"), std::string(22, 'y'));
    EXPECT_EQ(reason_in_ring("ka: say: why\n" + std::string(32, 'x')), "");
}

TEST_P(Reasons, are_in_reports_of_hosts_that_died_or_were_ended)
{
    EXPECT_EQ(host.try_call("say_and_die", 0, "ka: say_and_die: a\nka: say_and_die: \"b\"\n").error_class, KA_DIED);
    EXPECT_EQ(host.reason(), "\"b\"");
    EXPECT_NE(host.report().find("\n  reason     \"b\"\n"), std::string::npos) << host.report();
    EXPECT_EQ(nlohmann::json::parse(host.report_json())["reason"], "\"b\"");
    host.restart();
    EXPECT_EQ(host.try_call("say_and_die", 0, "nothing\n").error_class, KA_DIED);
    EXPECT_EQ(host.report().find("\n  reason"), std::string::npos) << host.report();
    EXPECT_TRUE(nlohmann::json::parse(host.report_json())["reason"].is_null());
    EXPECT_EQ(host.try_call("say", 1, "").error_class, KA_CLOSED);
    EXPECT_EQ(host.reason(), "");

    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ka::Options options = with(KA_REASONS_ON);
    options.cancel_fd = ends[0];
    ka::Host cancelled(module_path("reasons"), options);
    cancelled.on_callback([&](int32_t) { return static_cast<int32_t>(write(ends[1], "", 1)); });
    EXPECT_EQ(cancelled.try_call("say_and_hang", 0, "ka: say_and_hang: c\n").error_class, KA_CANCELLED);
    EXPECT_EQ(nlohmann::json::parse(cancelled.report_json())["reason"], "c");
    close(ends[0]);
    close(ends[1]);
}

TEST_P(Reasons, are_found_where_the_host_starts_again_at_once)
{
    ka::Options options = with(KA_REASONS_ON);
    options.restart = KA_RESTART_AT_ONCE;
    options.restart_pause_ms = 0;
    ka::Host again(module_path("reasons"), options);
    EXPECT_EQ(again.try_call("say_and_die", 0, "ka: say_and_die: why\n").error_class, KA_DIED);
    EXPECT_EQ(again.reason(), "why");
    EXPECT_EQ(again.call("say", 3, ""), 3);
    EXPECT_EQ(again.reason(), "");
    EXPECT_EQ(again.call("say", 3, "ka: say: again\n"), 3);
    EXPECT_EQ(again.reason(), "again");
}

TEST_P(Reasons, are_not_looked_for_unasked)
{
    ka::Host unasked(module_path("reasons"), with(KA_REASONS_OFF));
    EXPECT_EQ(unasked.call("say", 5, "ka: say: why\n"), 5);
    EXPECT_EQ(unasked.reason(), "");
    EXPECT_EQ(unasked.error_output(), "ka: say: why\n");
    ka::Options options;
    options.waiting = GetParam();
    ka::Host inheriting(module_path("reasons"), options); // standard error is not captured
    EXPECT_EQ(inheriting.call("say", 5, ""), 5);
    EXPECT_EQ(inheriting.reason(), "");
}

TEST_P(Reasons, need_the_ring)
{
    ka::Options options;
    options.reasons = KA_REASONS_ON;
    EXPECT_STREQ(ka::Host::try_open(module_path("reasons"), options).error().message,
                 "reasons is KA_REASONS_ON (1); it needs error_output KA_STDERR_RING (2)");
    options.reasons = 2;
    EXPECT_STREQ(ka::Host::try_open(module_path("reasons"), options).error().message,
                 "reasons is 2; it is KA_REASONS_OFF (0) or KA_REASONS_ON (1)");
}
