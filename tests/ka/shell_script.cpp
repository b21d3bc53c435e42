// SPDX-License-Identifier: MIT
//
// ka shell with a script on standard input.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

#include "ka/command.h"

namespace {

Running start_script(const std::string &script, const std::vector<std::string> &options = {})
{
    std::vector<std::string> words = {"shell"};
    words.insert(words.end(), options.begin(), options.end());
    words.push_back(tasks_module);
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    EXPECT_EQ(write(ends[1], script.data(), script.size()), static_cast<ssize_t>(script.size()));
    close(ends[1]);
    const Running running = start_ka(words, ends[0]);
    close(ends[0]);
    return running;
}

Outcome script(const std::string &lines, const std::vector<std::string> &options = {})
{
    return await_ka(start_script(lines, options));
}

} // namespace

TEST(KaShellScript, prints_the_results_of_every_line_and_nothing_else)
{
    const Outcome outcome = script("add 2 40 0\n\n# a comment\nadd $sum 1 0 # another\ngive_code 0");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "sum = 42\nreturn code 0\nsum = 43\nreturn code 0\nreturn code 0\n");
    EXPECT_EQ(outcome.err, "");
}

TEST(KaShellScript, ends_with_the_status_of_the_last_call)
{
    EXPECT_EQ(script("").status, 0);
    EXPECT_EQ(script("give_code 5\n").status, 1);
    EXPECT_EQ(script("give_code 5\ngive_code 0\n").status, 0);
    EXPECT_EQ(script("give_code 0\ngive_code 5\n:vars\n").status, 1);
}

TEST(KaShellScript, ends_at_the_first_line_that_fails)
{
    const Outcome usage = script("give_code 5\ngive_code 'x\ngive_code 6\n");
    EXPECT_EQ(usage.status, 2);
    EXPECT_EQ(usage.out, "return code 5\n");
    EXPECT_EQ(usage.err, "ka: line 2: the closing quote is missing\n");
    const Outcome refused = script("give_code 5\nadd 1 2\n");
    EXPECT_EQ(refused.status, 3);
    EXPECT_EQ(refused.err.substr(0, 18), "ka: line 2: add: t") << refused.err;
    EXPECT_EQ(script("die_by 9\n").status, 5);
    EXPECT_EQ(script("hang\n", {"--deadline", "200ms"}).status, 6);
    EXPECT_EQ(script(":nothing\n").status, 2);
}

TEST(KaShellScript, goes_on_when_told_to)
{
    const Outcome outcome = script("count_call\ndie_by 9\ncount_call\nadd 1\n", {"--keep-going"});
    EXPECT_EQ(outcome.status, 5);
    EXPECT_EQ(outcome.out, "return code 1\nreturn code 1\n");
    EXPECT_NE(outcome.err.find("ka: line 2: "), std::string::npos) << outcome.err;
    EXPECT_NE(outcome.err.find("ka: line 4: "), std::string::npos) << outcome.err;
}

TEST(KaShellScript, tells_of_a_new_start_also_when_its_call_ends_the_module_too)
{
    const std::string again = "ka: the module was started again, its memory is new (process ";
    const auto count_of = [](const std::string &text, const std::string &part) {
        size_t count = 0;
        for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at++)
            count++;
        return count;
    };
    const std::string died = script("die_by 9\ndie_by 9\ndie_by 9\n", {"--keep-going"}).err;
    EXPECT_EQ(count_of(died, again), 2u) << died;
    const std::string late = script("die_by 9\nhang\ncount_call\n", {"--keep-going", "--deadline", "300ms"}).err;
    EXPECT_EQ(count_of(late, again), 2u) << late;
    const std::string refused = script("die_by 9\nadd 1\ncount_call\n", {"--keep-going"}).err;
    EXPECT_EQ(count_of(refused, again), 1u) << refused;
}

TEST(KaShellScript, does_not_run_what_is_no_module)
{
    const Outcome outcome = ka({"shell", "/nowhere/module"});
    EXPECT_EQ(outcome.status, 4);
    EXPECT_NE(outcome.err.find("/nowhere/module"), std::string::npos) << outcome.err;
    EXPECT_EQ(ka({"shell"}).status, 2);
    EXPECT_EQ(ka({"shell", "--callback", "value+", tasks_module}).status, 2);
}

TEST(KaShellScript, shows_one_object_for_each_call)
{
    const Outcome outcome = script("add 2 40 0\nnothing_near_this 1\n", {"--json", "--keep-going"});
    const size_t end = outcome.out.find('\n');
    EXPECT_TRUE(outcome.out.starts_with("{\"function\":\"add\",\"return_code\":0,\"results\":{\"sum\":42},"))
        << outcome.out;
    EXPECT_TRUE(outcome.out.substr(end + 1).starts_with("{\"error\":\"refused\",")) << outcome.out;
    EXPECT_TRUE(outcome.out.ends_with("\"function\":\"nothing_near_this\"}\n")) << outcome.out;
    EXPECT_EQ(outcome.status, 3);
}

TEST(KaShellScript, takes_the_options_of_calls)
{
    EXPECT_EQ(script("ask 4\n", {"--callback", "value*10", "--layout", "64"}).out, "return code 40\n");
    EXPECT_EQ(script("ask 4\n:callback const:9\nask 4\n").out, "return code 0\nreturn code 9\n");
    EXPECT_EQ(script("no_such_function 1\n", {"--raw"}).out, "return code 7\n");
    EXPECT_NE(script("give_code 1\n", {"--trace", "1"}).err, "");
    const Outcome traced = script("give_code 1\n:trace 1\ngive_code 2\n:trace 0\ngive_code 3\n");
    EXPECT_NE(traced.err.find("give_code"), std::string::npos) << traced.err;
    EXPECT_EQ(traced.out, "return code 1\nreturn code 2\nreturn code 3\n");
}

TEST(KaShellScript, words_keep_quotes_and_brackets_together)
{
    EXPECT_EQ(script("measure 'two words'\nmeasure \"two words\"\nmeasure don't\nmeasure 'a\\'b # c'\n").out,
              "return code 9\nreturn code 9\nreturn code 5\nreturn code 7\n");
    EXPECT_EQ(script("double [1, 2]\n").out, "values = [2, 4]\nreturn code 0\n");
    EXPECT_EQ(script("x = 5\ny=6\n$z = 7\ndouble [$x,$y, $z]\n").out, "values = [10, 12, 14]\nreturn code 0\n");
    EXPECT_EQ(script("greet str:20\nmeasure $text\nmeasure '$text'\n").out,
              "text = 'good day'\nreturn code 0\nreturn code 8\nreturn code 5\n");
    EXPECT_EQ(script("double [1, 2\n").err, "ka: line 1: the closing bracket is missing\n");
    EXPECT_EQ(script("x = hello\n").status, 2);
    EXPECT_EQ(script("x =\n").status, 2);
}

TEST(KaShellScript, variables_are_named_after_what_cannot_be_a_name)
{
    EXPECT_EQ(script("describe &1 2 &'x'\n:vars\n").out.substr(0, 12), "any (argumen");
    const std::string out = script("describe &1 2 &'x'\n:vars\n").out;
    EXPECT_NE(out.find("\nany_argument_1 = 1\nany_argument_3 = 'x'\n"), std::string::npos) << out;
}

TEST(KaShellScript, orders_are_listed_and_may_be_cut)
{
    const std::string help = script(":help\n").out;
    for (const char *order : {":list", ":vars", ":trace", ":deadline", ":callback", ":restart", ":help", ":quit"})
        EXPECT_NE(help.find(std::string("\n") + order), std::string::npos) << help;
    EXPECT_EQ(script(":q\ngive_code 3\n").out, "");
    const Outcome outcome = script(":\n");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "ka: line 1: : could be :list or :vars\n");
    EXPECT_EQ(script(":trace\n").err, "ka: line 1: usage: :trace N\n");
    for (const char *level : {"x", "-1", "5", "99999999999"}) {
        const Outcome bad = script(":trace " + std::string(level) + "\n");
        EXPECT_EQ(bad.status, 2);
        EXPECT_EQ(bad.err, "ka: line 1: :trace takes 0 to 4, not \"" + std::string(level) + "\"\n");
    }
    EXPECT_EQ(script(":vars x\n").status, 2);
    const std::string list = script(":list add\n").out;
    EXPECT_NE(list.find("IntByReference"), std::string::npos) << list;
    EXPECT_EQ(script(":list addd\n").status, 3);
}

TEST(KaShellScript, is_ended_by_a_signal)
{
    for (int signal : {SIGINT, SIGTERM}) {
        const Running running = start_script("give_code 1\nhang\ngive_code 2\n", {"--keep-going"});
        char result[64];
        EXPECT_GT(read(running.out, result, sizeof result), 0); // of the first line: the host has been started
        const pid_t host = host_of(running.pid);
        EXPECT_TRUE(sleeps_in_a_call(host));
        kill(running.pid, signal);
        const Outcome outcome = await_ka(running);
        EXPECT_EQ(outcome.status, 130);
        EXPECT_EQ(outcome.out, "");
        EXPECT_TRUE(ends(host));
    }
}

TEST(KaShellScript, is_ended_by_a_signal_while_it_waits_for_a_line)
{
    int input[2];
    ASSERT_EQ(pipe(input), 0);
    const Running running = start_ka({"shell", tasks_module}, input[0]);
    const pid_t host = host_of(running.pid);
    segment_of(host); // it has been started
    kill(running.pid, SIGINT);
    EXPECT_EQ(await_ka(running).status, 130);
    EXPECT_TRUE(ends(host));
    close(input[0]);
    close(input[1]);
}

TEST(KaShellScript, examples_of_the_help_work)
{
    const std::string help = ka({"shell", "--help"}).out;
    const size_t begin = help.find("Examples:\n") + 10;
    std::istringstream lines(help.substr(begin, help.find("\n\n", begin) - begin));
    int count = 0;
    for (std::string line; std::getline(lines, line); count++) {
        const std::string path = std::filesystem::path(KA_COMMAND).parent_path();
        const std::string command = "cd " + examples_folder(KA_EXAMPLES) + " && PATH=" + path + ":$PATH && { " +
                                    line + "; } </dev/null >/dev/null";
        EXPECT_EQ(std::system(command.c_str()), 0) << line;
    }
    EXPECT_EQ(count, 3);
}

TEST(KaShellScript, takes_lines_that_end_with_a_carriage_return_too)
{
    const Outcome outcome = script("add 2 40 0\r\n\r\nadd $sum 1 0\r\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "sum = 42\nreturn code 0\nsum = 43\nreturn code 0\n");
    EXPECT_EQ(outcome.err, "");
}

TEST(KaShellScript, is_empty_when_standard_input_is_closed)
{
    const std::string command = "timeout -k 1 60 " KA_COMMAND " shell " + tasks_module + " <&-";
    const int status = std::system(command.c_str());
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "124: waits for ever";
}
