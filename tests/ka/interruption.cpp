// SPDX-License-Identifier: MIT
//
// ka is interrupted or killed while a call is under way: nothing is left.
#include "ka/command.h"

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>

struct InCall {
    Running running;
    pid_t host;
    int segment;
};

static InCall start_call(const std::string &function)
{
    const Running running = start_ka({"call", tasks_module, function});
    const pid_t host = host_of(running.pid);
    const int segment = segment_of(host);
    EXPECT_TRUE(sleeps_in_a_call(host));
    EXPECT_TRUE(segment_exists(segment));
    return {running, host, segment};
}

TEST(KaInterruption, ends_the_host_and_ka_with_status_130)
{
    for (int signal : {SIGINT, SIGTERM}) {
        const InCall call = start_call("hang");
        kill(call.running.pid, signal);
        const Outcome outcome = await_ka(call.running);
        EXPECT_EQ(outcome.status, 130);
        EXPECT_EQ(outcome.out, "");
        EXPECT_TRUE(outcome.err.starts_with("ka: " + tasks_module + ": a call of \"hang\" was cancelled\n"))
            << outcome.err;
        EXPECT_EQ(kill(call.host, 0), -1);
        EXPECT_TRUE(segment_vanishes(call.segment));
    }
}

TEST(KaInterruption, shows_what_the_call_was_doing)
{
    for (const std::string form : {"text", "json"}) {
        std::vector<std::string> words = {"call", tasks_module, "nap", "600000"};
        if (form == "json") words.insert(words.begin() + 1, "--json");
        const Running running = start_ka(words);
        const pid_t host = host_of(running.pid);
        segment_of(host);
        EXPECT_TRUE(sleeps_in_a_call(host));
        kill(running.pid, SIGINT);
        const Outcome outcome = await_ka(running);
        EXPECT_EQ(outcome.status, 130);
        for (const char *part :
             {"\n  function   nap\n", " = 600000\n", "\n  backtrace  #0 ", " nap", "\n  try again  unsure"})
            EXPECT_NE(outcome.err.find(part), std::string::npos) << part << " not in\n" << outcome.err;
        if (form == "text") continue;
        EXPECT_NE(outcome.out.find("\"error\":\"cancelled\""), std::string::npos) << outcome.out;
        EXPECT_NE(outcome.out.find("\"values\":[600000]"), std::string::npos) << outcome.out;
        EXPECT_NE(outcome.out.find("\"backtrace\":[\"#0 "), std::string::npos) << outcome.out;
    }
}

TEST(KaInterruption, ends_a_host_that_does_not_hear_sigterm)
{
    const InCall call = start_call("hang_deaf");
    kill(call.running.pid, SIGINT);
    EXPECT_EQ(await_ka(call.running).status, 130);
    EXPECT_EQ(kill(call.host, 0), -1);
    EXPECT_TRUE(segment_vanishes(call.segment));
}

TEST(KaInterruption, by_an_ignored_signal_is_none)
{
    signal(SIGINT, SIG_IGN);
    const Running running = start_ka({"call", tasks_module, "nap", "300"});
    signal(SIGINT, SIG_DFL);
    EXPECT_TRUE(sleeps_in_a_call(host_of(running.pid)));
    kill(running.pid, SIGINT);
    const Outcome outcome = await_ka(running);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "return code 0\n");
}

TEST(KaKilled, leaves_no_host_and_no_segment)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    for (int signal : {SIGKILL, SIGHUP, SIGQUIT}) {
        const InCall call = start_call("hang");
        kill(call.running.pid, signal);
        EXPECT_EQ(await_ka(call.running).status, -signal);
        EXPECT_TRUE(ends(call.host));
        waitpid(call.host, nullptr, 0);
        EXPECT_TRUE(segment_vanishes(call.segment));
    }
}
