// SPDX-License-Identifier: MIT
//
// Many calls of one function, and how long they took.
#include <csignal>
#include <nlohmann/json.hpp>
#include <regex>

#include "caller/waiting.h"
#include "ka/command.h"

TEST(KaRepeat, calls_one_host_again_and_tells_the_times)
{
    const Outcome outcome = call({"--repeat", "50", "count_call"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "");
    const std::regex wanted(R"(return code 50\n50 calls; 50 of them not with 0; \d+ calls/s; )"
                            R"(min [\d.]+, median [\d.]+, p99 [\d.]+, max [\d.]+ ms\n)");
    EXPECT_TRUE(std::regex_match(outcome.out, wanted)) << outcome.out;
}

TEST(KaRepeat, arguments_start_afresh_each_time)
{
    const Outcome outcome = call({"--repeat", "20", "double", "[1,2]"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out.find("values = [2, 4]\nreturn code 0\n20 calls; "), 0u) << outcome.out;
}

TEST(KaRepeat, json_has_the_times_in_order)
{
    const auto json = nlohmann::json::parse(call({"--json", "--repeat", "200", "add", "2", "40", "0"}).out);
    EXPECT_EQ(json["results"]["sum"], 42);
    EXPECT_EQ(json["calls"], 200);
    EXPECT_EQ(json["nonzero_calls"], 0);
    EXPECT_GT(json["calls_per_second"], 0);
    EXPECT_LE(json["min_ms"], json["median_ms"]);
    EXPECT_LE(json["median_ms"], json["p99_ms"]);
    EXPECT_LE(json["p99_ms"], json["max_ms"]);
    EXPECT_LE(json["milliseconds"], json["max_ms"]);
}

TEST(KaRepeat, ends_with_the_first_call_that_fails)
{
    const Outcome outcome = call({"--repeat", "3", "fault"});
    EXPECT_EQ(outcome.status, 5);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err.find("ka: after 0 calls:\nka: "), 0u) << outcome.err;
}

// Each call lets the processor go: once to nap, and once to wait for the next.
static int naps_of(pid_t host)
{
    const std::string status = read_file("/proc/" + std::to_string(host) + "/status");
    const std::string field = "\nvoluntary_ctxt_switches:";
    const size_t at = status.find(field);
    return at == std::string::npos ? 0 : std::stoi(status.substr(at + field.size()));
}

TEST(KaRepeat, can_be_interrupted)
{
    const Running running = start_ka({"call", "--repeat", "10000000", tasks_module, "nap", "1"});
    const pid_t host = host_of(running.pid);
    ASSERT_NE(host, 0);
    EXPECT_TRUE(becomes_true([host] { return naps_of(host) > 100; }));
    kill(running.pid, SIGINT);
    const Outcome outcome = await_ka(running);
    EXPECT_EQ(outcome.status, 130);
    EXPECT_NE(outcome.err.find(" calls"), std::string::npos) << outcome.err;
}
