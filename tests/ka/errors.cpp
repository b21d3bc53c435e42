// SPDX-License-Identifier: MIT
//
// Exit statuses, and the line that goes with each.
#include "ka/command.h"

#include <cstdlib>
#include <fstream>
#include <sys/wait.h>

TEST(KaExitStatus, is_0_when_the_function_returns_0)
{
    EXPECT_EQ(call({"give_code", "0"}).status, 0);
}

TEST(KaExitStatus, is_1_when_the_function_returns_another_code)
{
    for (const char *code : {"1", "-1", "5", "256"}) {
        const Outcome outcome = call({"give_code", code});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.out, std::string("return code ") + code + "\n");
    }
}

TEST(KaExitStatus, is_1_when_the_host_refuses_and_the_meaning_is_told)
{
    const Outcome outcome = call({"--raw", "no_such_function"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "return code 7\n");
    EXPECT_EQ(outcome.err, "ka: a host answers 7 when the module has no function of that name\n");
}

TEST(KaExitStatus, is_2_for_bad_usage)
{
    const std::vector<std::string> cases[] = {
        {},
        {"--unknown"},
        {"unknown"},
        {"call"},
        {"call", tasks_module},
        {"call", "--layout", "32", tasks_module, "count_call"},
        {"call", "--deadline", "0", tasks_module, "count_call"},
        {"call", "--deadline", "soon", tasks_module, "count_call"},
        {"call", "--deadline", "501h", tasks_module, "count_call"},
        {"call", "--deadline", "nan", tasks_module, "count_call"},
        {"check", "--deadline", "nan", tasks_module},
        {"call", "--trace", "5", tasks_module, "count_call"},
        {"call", "--callback", "4.2", tasks_module, "count_call"},
        {"call", "--repeat", "0", tasks_module, "count_call"},
        {"call", "--segment", "100", tasks_module, "count_call"},
        {"call", "--scratch", "-1", tasks_module, "count_call"},
    };
    for (const auto &words : cases) {
        const Outcome outcome = ka(words);
        EXPECT_EQ(outcome.status, 2) << outcome.err;
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err.find("ka: "), 0u) << outcome.err;
        EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
    }
}

TEST(KaExitStatus, is_2_for_more_than_fifty_arguments)
{
    std::vector<std::string> words(52, "1");
    words[0] = "describe";
    words.insert(words.begin(), "--raw");
    const Outcome outcome = call(words);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "ka: a call of \"describe\" with more than 50 arguments\n");
    words.pop_back();
    EXPECT_EQ(call(words).out, "return code " + std::to_string(50 * 201) + "\n");
}

TEST(KaExitStatus, is_4_when_the_module_cannot_start)
{
    const std::string no_loader = module_folder(CALLER_MODULES) + "/caller_module_no_loader";
    const std::pair<std::string, std::string> cases[] = {
        {"/no/such/module", "no such file"},
        {"/tmp", "a directory"},
        {"/etc/passwd", "not executable"},
        {no_loader, "its loader /nowhere/ld-linux.so.2 is missing (the " + std::to_string(module_bits()) +
                        "-bit C library is not installed)"},
    };
    for (const auto &[module, why] : cases) {
        const Outcome outcome = ka({"call", module, "count_call"});
        EXPECT_EQ(outcome.status, 4);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err, "ka: cannot start " + module + ": " + why + "\n");
    }
}

TEST(KaExitStatus, is_4_when_the_module_ends_at_start)
{
    const std::string module = module_folder(CALLER_MODULES) + "/caller_module_no_library";
    const Outcome outcome = ka({"call", module, "count_call"});
    EXPECT_EQ(outcome.status, 4);
    EXPECT_NE(outcome.err.find("libkahost.so.1"), std::string::npos) << "the loader's own words";
    EXPECT_NE(outcome.err.find("ka: " + module + " ended at start with status 127\n"), std::string::npos)
        << outcome.err;
}

TEST(KaExitStatus, is_5_when_the_module_dies)
{
    const Outcome fault = call({"fault"});
    EXPECT_EQ(fault.status, 5);
    const std::string line =
        "ka: " + tasks_module + ": the host was killed by SIGSEGV (Segmentation fault) in a call of \"fault\"\n";
    EXPECT_EQ(fault.err.substr(0, line.size()), line);
    for (const char *label : {"  process ", "  when ", "  function   fault\n", "  try again ", "  backtrace "})
        EXPECT_NE(fault.err.find(label), std::string::npos) << label << fault.err;
    EXPECT_EQ(fault.out, "");
    EXPECT_EQ(call({"leave", "3"}).status, 5);
    EXPECT_EQ(call({"die_by", "9"}).status, 5);
}

TEST(KaExitStatus, is_6_past_the_deadline)
{
    const Outcome outcome = call({"--deadline", "1.5", "hang"});
    EXPECT_EQ(outcome.status, 6);
    const std::string line = "ka: " + tasks_module + ": a call of \"hang\" took more than 1500 ms\n";
    EXPECT_EQ(outcome.err.substr(0, line.size()), line);
    EXPECT_NE(outcome.err.find(" hang"), std::string::npos) << "where it was: " << outcome.err;
}

TEST(KaExitStatus, is_3_when_the_call_does_not_suit_the_tables_and_nothing_is_started)
{
    const Outcome outcome =
        ka({"call", module_folder(CALLER_MODULES) + "/caller_module_no_loader", "add", "1", "2", "3.5"});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "ka: add: argument 3 (sum) is IntByReference: takes INTEGER by reference, got REAL 3.5\n");
}

TEST(KaExitStatus, is_3_when_the_call_does_not_fit_the_segment_asked_for_and_the_size_told_is_enough)
{
    const Outcome outcome = call({"--segment", "1048576", "measure", "str:2000000"});
    EXPECT_EQ(outcome.status, 3);
    const std::string before = "ka: the call of \"measure\" needs a segment of ";
    ASSERT_EQ(outcome.err.find(before), 0u) << outcome.err;
    EXPECT_NE(outcome.err.find(" bytes, this one has 1048576 (--segment)\n"), std::string::npos);
    const int needed = std::atoi(outcome.err.c_str() + before.size());
    EXPECT_EQ(call({"--segment", std::to_string(needed), "measure", "str:2000000"}).status, 0);
    EXPECT_EQ(call({"--segment", std::to_string(needed - 1), "measure", "str:2000000"}).status, 3);
}

TEST(KaExitStatus, is_0_when_the_segment_grows_with_the_call)
{
    EXPECT_EQ(call({"measure", "str:2000000"}).status, 0);
    EXPECT_EQ(call({"--scratch", "5000000", "measure", "str:2000000"}).status, 0);
}

TEST(KaExitStatus, is_2_when_the_results_cannot_be_written)
{
    std::string command = KA_COMMAND " call " + tasks_module + " give_code 0 2>&1 >/dev/full";
    FILE *pipe = popen(command.c_str(), "r");
    char line[200] = "";
    EXPECT_NE(fgets(line, sizeof line, pipe), nullptr);
    EXPECT_STREQ(line, "ka: the results could not be written\n");
    EXPECT_EQ(WEXITSTATUS(pclose(pipe)), 2);
}

TEST(KaHelp, is_a_result_and_holds_the_table_of_exit_statuses)
{
    const std::string table =
        "Exit status:\n"
        "  0    done: the function returned 0, the REAL is as asked for\n"
        "  1    the function returned another code, the REAL has a status, something was found\n"
        "  2    bad usage or a malformed argument, or the results could not be written\n"
        "  3    refused: the call does not suit the module's tables, or is too big\n"
        "  4    no such module, process or segment, or the module could not be started\n"
        "  5    the module died\n"
        "  6    no answer within the deadline\n"
        "  130  interrupted by SIGINT or SIGTERM\n";
    for (const std::vector<std::string> &words : {std::vector<std::string>{"--help"}, {"call", "--help"}}) {
        const Outcome outcome = ka(words);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.err, "");
        EXPECT_NE(outcome.out.find(table), std::string::npos) << outcome.out;
    }
    const std::string help = ka({"call", "--help"}).out;
    for (const char *word : {"--layout", "--deadline", "--callback", "--segment", "--scratch", "str:20",
                             "MODULE FUNCTION [ARGUMENT...]"})
        EXPECT_NE(help.find(word), std::string::npos) << word;
}

TEST(KaExitStatus, is_2_when_the_help_cannot_be_written)
{
    for (const char *words : {"--help", "call --help", "--version"}) {
        for (const char *output : {">/dev/full", ">&-"}) {
            const std::string command = KA_COMMAND " " + std::string(words) + " " + output + " 2>/dev/null";
            const int status = std::system(command.c_str());
            ASSERT_TRUE(WIFEXITED(status));
            EXPECT_EQ(WEXITSTATUS(status), 2) << words << " " << output;
        }
    }
}
