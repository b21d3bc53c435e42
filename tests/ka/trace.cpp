// SPDX-License-Identifier: MIT
//
// ka trace, of hosts in the middle of a call.
#include "ka/command.h"

#include <csignal>
#include <nlohmann/json.hpp>
#include <regex>
#include <sys/wait.h>

#include "base/duration.h"
#include "caller/waiting.h"
#include "ka/caller.h"
#include "ka/help_examples.h"

namespace {

struct Call {
    Running running;
    pid_t host;
    std::string pid;
};

Call start_call(const std::vector<std::string> &words)
{
    std::vector<std::string> all = {"call", tasks_module};
    all.insert(all.end(), words.begin(), words.end());
    const Running running = start_ka(all);
    const pid_t host = host_of(running.pid);
    segment_of(host); // it has become the module
    EXPECT_TRUE(sleeps_in_a_call(host));
    return {running, host, std::to_string(host)};
}

Outcome end_call(const Call &call)
{
    kill(call.running.pid, SIGTERM);
    return await_ka(call.running);
}

int level_of(const std::string &pid)
{
    const Outcome outcome = ka({"trace", "--json", pid});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    const auto json = nlohmann::json::parse(outcome.out, nullptr, false);
    return json.is_object() ? json["is"].get<int>() : -99;
}

} // namespace

TEST(KaTrace, shows_the_level_and_changes_nothing)
{
    const Call call = start_call({"nap", "600000"});
    const Outcome outcome = ka({"trace", call.pid});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "trace level of " + call.pid + ": is 0\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(level_of(call.pid), 0);
    end_call(call);
}

TEST(KaTrace, holds_a_level_for_a_time_and_restores_the_old_one)
{
    const Call call = start_call({"nap", "600000"});
    EXPECT_EQ(ka({"trace", call.pid, "--level", "3", "--keep"}).status, 0);
    const Outcome outcome = ka({"trace", call.pid, "--level", "1", "--for", "200ms"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "trace level of " + call.pid + ": was 3, is 1\n");
    EXPECT_EQ(outcome.err,
              "ka: the host traces on its own standard error; level 3 comes back after 200ms\nka: level 3 again\n");
    EXPECT_EQ(level_of(call.pid), 3);
    end_call(call);
}

TEST(KaTrace, restores_the_level_when_it_is_interrupted)
{
    const Call call = start_call({"nap", "600000"});
    for (const std::vector<std::string> &time : {std::vector<std::string>{}, {"--for", "1h"}}) {
        for (const int signal : {SIGINT, SIGTERM}) {
            std::vector<std::string> words = {"trace", call.pid, "--level", "4"};
            words.insert(words.end(), time.begin(), time.end());
            const Running trace = start_ka(words);
            EXPECT_TRUE(becomes_true([&] { return level_of(call.pid) == 4; }));
            kill(trace.pid, signal);
            EXPECT_EQ(await_ka(trace).status, 130);
            EXPECT_EQ(level_of(call.pid), 0);
        }
    }
    end_call(call);
}

TEST(KaTrace, shows_in_the_standard_error_of_the_host)
{
    const Call call = start_call({"nap", "2000"});
    EXPECT_EQ(ka({"trace", call.pid, "--level", "1", "--keep"}).status, 0);
    const Outcome outcome = await_ka(call.running);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "return code is 0\n");
}

TEST(KaTrace, ends_with_the_host)
{
    const Call call = start_call({"nap", "600000"});
    const Running trace = start_ka({"trace", call.pid, "--level", "1"});
    EXPECT_TRUE(becomes_true([&] { return level_of(call.pid) == 1; }));
    end_call(call);
    const Outcome outcome = await_ka(trace);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_NE(outcome.err.find("ka: the host has ended\n"), std::string::npos);
}

TEST(KaTrace, leaves_a_level_alone_that_somebody_else_has_set)
{
    const Call call = start_call({"nap", "600000"});
    const Running trace = start_ka({"trace", call.pid, "--level", "1"});
    EXPECT_TRUE(becomes_true([&] { return level_of(call.pid) == 1; }));
    EXPECT_EQ(ka({"trace", call.pid, "--level", "2", "--keep", "--json"}).out,
              "{\"pid\":" + call.pid + ",\"was\":1,\"is\":2}\n");
    kill(trace.pid, SIGINT);
    const Outcome outcome = await_ka(trace);
    EXPECT_EQ(outcome.status, 130);
    EXPECT_NE(outcome.err.find("ka: the level is 2 now, and is left so\n"), std::string::npos);
    EXPECT_EQ(level_of(call.pid), 2);
    end_call(call);
}

TEST(KaTrace, restores_a_level_that_no_option_takes)
{
    const Call call = start_call({"nap", "600000"});
    const int32_t own = -2; // as a module can set it
    char why[200] = "";
    ASSERT_EQ(ka_trace_process(call.host, &own, nullptr, why, sizeof why), KA_DONE) << why;
    EXPECT_EQ(ka({"trace", call.pid, "--level", "1", "--for", "10ms"}).status, 0);
    EXPECT_EQ(level_of(call.pid), own);
    end_call(call);
}

TEST(KaTrace, refuses_what_is_no_host)
{
    const pid_t child = fork();
    if (child == 0) _exit(0);
    waitpid(child, nullptr, 0);
    const Outcome gone = ka({"trace", std::to_string(child), "--level", "1"});
    EXPECT_EQ(gone.status, 4);
    EXPECT_EQ(gone.err, "ka: there is no process " + std::to_string(child) + "\n");
    const Call call = start_call({"nap", "600000"});
    const Outcome caller = ka({"trace", std::to_string(call.running.pid), "--level", "1"});
    EXPECT_EQ(caller.status, 4);
    EXPECT_EQ(caller.out, "");
    EXPECT_NE(caller.err.find("process " + std::to_string(call.running.pid)), std::string::npos) << caller.err;
    end_call(call);
}

TEST(KaTrace, refuses_bad_usage)
{
    const std::string own = std::to_string(getpid());
    for (const std::vector<std::string> &words : {std::vector<std::string>{"trace"},
                                                  {"trace", "0"},
                                                  {"trace", "-5"},
                                                  {"trace", own, "--level", "much"},
                                                  {"trace", own, "--level", "-1"},
                                                  {"trace", own, "--level", "5"},
                                                  {"trace", own, "--level", ""},
                                                  {"trace", own, "--level", "1", "--for", ""},
                                                  {"trace", own, "--for", "10s"},
                                                  {"trace", own, "--keep"},
                                                  {"trace", own, "--level", "1", "--for", "soon"},
                                                  {"trace", own, "--level", "1", "--for", "1s", "--keep"}}) {
        const Outcome outcome = ka(words);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.err.find("ka: "), 0u) << outcome.err;
    }
    EXPECT_NE(ka({"trace", "0"}).err.find("PID: takes 1 to 2147483647, not \"0\""), std::string::npos);
    EXPECT_EQ(ka({"trace", own, "--level", "5"}).err, "ka: --level: takes 0 to 4, not \"5\"; see ka trace --help\n");
    EXPECT_EQ(ka({"call", "--trace", "5", tasks_module, "give_code"}).err,
              "ka: --trace: takes 0 to 4, not \"5\"; see ka call --help\n");
}

TEST(KaTraceHelp, examples_work)
{
    const Call call = start_call({"nap", "600000"});
    for (std::string example : help_examples("trace")) {
        example = std::regex_replace(example, std::regex("4711"), call.pid);
        example = std::regex_replace(example, std::regex("10s"), "100ms");
        EXPECT_EQ(run_example(example, ".").status, 0) << example;
    }
    end_call(call);
}

TEST(KaDuration, is_read_with_its_unit)
{
    const std::pair<const char *, int64_t> good[] = {{"10s", 10000}, {"500ms", 500}, {"2m", 120000}, {"1h", 3600000},
                                                     {"1.5s", 1500}, {"3", 3000},    {"1ms", 1}};
    for (const auto &[text, milliseconds] : good)
        EXPECT_EQ(read_duration(text).value_or(std::chrono::milliseconds(-1)).count(), milliseconds) << text;
    for (const char *text : {"", "s", "ms", "-1s", "0", "0s", "1x", "1 s", "1ss", "nan", "inf", "1e3", "1e999s",
                             "99999999h", "0.1ms", "+1s"})
        EXPECT_FALSE(read_duration(text)) << text;
}
