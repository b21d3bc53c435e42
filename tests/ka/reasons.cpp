// SPDX-License-Identifier: MIT
//
// The reason of a return code, which a function has written on standard error, beside the code.
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "ka/command.h"

namespace {

const std::string module = module_folder(CALLER_MODULES) + "/caller_module_reasons";

Outcome say(const std::string &text, const std::vector<std::string> &options = {})
{
    std::vector<std::string> words = {"call"};
    words.insert(words.end(), options.begin(), options.end());
    words.insert(words.end(), {module, "say", "1001", "'" + text + "'"});
    return ka(words);
}

std::string code_line(const Outcome &outcome)
{
    return outcome.out.substr(outcome.out.find("return code"));
}

} // namespace

TEST(KaReasons, are_beside_the_code)
{
    const Outcome outcome = say("before\\nka: say: the book is closed\\n");
    EXPECT_EQ(code_line(outcome), "return code 1001: the book is closed\n");
    EXPECT_EQ(outcome.err, "before\nka: say: the book is closed\n"); // as it was written
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(code_line(say("ka: say: red \\x1b[31m\\n")), "return code 1001: red \\x1b[31m\n");
    const auto json = nlohmann::json::parse(say("ka: say: red \\x1b[31m\\n", {"--json"}).out);
    EXPECT_EQ(json["return_code"], 1001);
    EXPECT_EQ(json["reason"], "red \x1b[31m");
}

TEST(KaReasons, are_those_of_the_function_alone)
{
    for (const char *text : {"", "why\\n", "ka: say_more: why\\n", "ka: say: no end"}) {
        EXPECT_EQ(code_line(say(text)), "return code 1001\n") << text;
        EXPECT_FALSE(nlohmann::json::parse(say(text, {"--json"}).out).contains("reason")) << text;
    }
    EXPECT_EQ(code_line(ka({"call", module, "say", "0", "'ka: say: why\\n'"})), "return code 0\n");
    EXPECT_EQ(code_line(say("ka: say: why\\n", {"--under", "env"})), "return code 1001\n"); // not collected
}

// Both in one file, as they were written.
TEST(KaReasons, output_of_the_host_comes_before_what_ka_shows)
{
    const std::string file = testing::TempDir() + "ka_reasons." + std::to_string(getpid());
    const std::string command =
        KA_COMMAND " call --trace 1 " + module + " say_and_hang 5 \"'one\\n'\" --deadline 1s >" + file + " 2>&1";
    EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 6);
    const std::string text = read_file(file);
    EXPECT_EQ(text.find("\ncalling say_and_hang, argc = 2\n"), 0u) << text;
    const size_t written = text.find("one\n");
    const size_t asked = text.find("ka: call-back 0, answered 0\n");
    const size_t late = text.find("took more than 1000 ms");
    EXPECT_TRUE(written < asked && asked < late && late != std::string::npos) << text;
    std::system(("rm " + file).c_str());
}

TEST(KaReasons, are_those_of_each_call_in_a_session)
{
    const std::string file = testing::TempDir() + "ka_reasons." + std::to_string(getpid());
    const std::string command = "printf '%s\\n' \"say 1 'ka: say: one\\n'\" \"say 2 ''\" \"say_more 3 'ka: say_more: "
                                "three\\n'\" \"say 0 'ka: say: four\\n'\" | " KA_COMMAND " shell " +
                                module + " 2>&1 >" + file + " | cat >" + file + ".err";
    EXPECT_NE(std::system(command.c_str()), -1);
    const std::string out = read_file(file);
    for (const char *line : {"return code 1: one\n", "return code 2\n", "return code 3: three\n", "return code 0\n"})
        EXPECT_NE(out.find(line), std::string::npos) << out;
    EXPECT_EQ(read_file(file + ".err"), "ka: say: one\nka: say_more: three\nka: say: four\n");
    std::system(("rm " + file + " " + file + ".err").c_str());
}
