// SPDX-License-Identifier: MIT
//
// What is said when the words of a command line cannot be understood, and that with --json a failure is an object.
#include <csignal>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

#include "ka/caller.h"
#include "ka/command.h"

namespace {

using Json = nlohmann::json;
using Words = std::vector<std::string>;

void expect_refused(const Words &words, const std::string &reason, const std::string &command)
{
    const Outcome outcome = ka(words);
    EXPECT_EQ(outcome.status, 2) << reason;
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "ka: " + reason + "; see " + command + " --help\n");
}

} // namespace

TEST(KaUsage, what_was_wrong_is_named)
{
    expect_refused({}, "a subcommand is missing", "ka");
    expect_refused({"foo"}, "unknown subcommand \"foo\"", "ka");
    expect_refused({"--foo"}, "unknown option --foo", "ka");
    expect_refused({"list"}, "MODULE is missing", "ka list");
    expect_refused({"call", "m"}, "FUNCTION is missing", "ka call");
    expect_refused({"list", "--foo", "m"}, "unknown option --foo", "ka list");
    expect_refused({"list", "m", "f", "one", "two"}, "unexpected argument \"one\"", "ka list");
    expect_refused({"list", "m", "f", "\x1b[31m"}, "unexpected argument \"\\x1b[31m\"", "ka list");
    expect_refused({"call", "--deadline"}, "--deadline needs a value: TIME", "ka call");
    expect_refused({"call", "--layout", "64", "--layout", "64", "m", "f"}, "--layout is given more than once",
                   "ka call");
    expect_refused({"list", "--json=no", "m"}, "--json takes no value", "ka list");
}

TEST(KaUsage, a_misspelt_word_is_told_the_nearest)
{
    expect_refused({"check", "--jsn"}, "unknown option --jsn (did you mean --json?)", "ka check"); // and no MODULE
    expect_refused({"chekc"}, "unknown subcommand \"chekc\" (did you mean check?)", "ka");
    expect_refused({"List", "m"}, "unknown subcommand \"List\" (did you mean list?)", "ka");
    expect_refused({"--verson"}, "unknown option --verson (did you mean --version?)", "ka");
    expect_refused({"list", "--jsno", "m"}, "unknown option --jsno (did you mean --json?)", "ka list");
    expect_refused({"check", "--deadlin=5s", "m"}, "unknown option --deadlin=5s (did you mean --deadline?)",
                   "ka check");
    expect_refused({"dump", "--elemnts", "3", "5"}, "unknown option --elemnts (did you mean --elements?)", "ka dump");
    expect_refused({"shell", "-json", "m"}, "unknown option -json (did you mean --json?)", "ka shell");
}

TEST(KaUsage, value_out_of_range_is_told_with_the_range)
{
    expect_refused({"call", "--repeat", "x", "m", "f"}, "--repeat: takes 1 to 10000000, not \"x\"", "ka call");
    expect_refused({"call", "--repeat", "10000001", "m", "f"}, "--repeat: takes 1 to 10000000, not \"10000001\"",
                   "ka call");
    expect_refused({"shell", "--scratch", "", "m"}, "--scratch: takes 0 to 2147483647, not \"\"", "ka shell");
    expect_refused({"dump", "1.5"}, "NUMBER: takes 0 to 2147483647, not \"1.5\"", "ka dump");
    expect_refused({"dump", "--layout", "32", "5"}, "--layout: takes native or 64, not \"32\"", "ka dump");
    expect_refused({"real", "--length", "0x10", "5"}, "--length: takes 2 to 64, not \"0x10\"", "ka real");
    expect_refused({"completion", "tcsh"}, "SHELL: takes bash, zsh or fish, not \"tcsh\"", "ka completion");
    const std::string digits(60, '9');
    expect_refused({"dump", digits + "9"}, "NUMBER: takes 0 to 2147483647, not \"" + digits + "...\"", "ka dump");
}

// Nothing is also a number to some; here it is a variable of a shell script that is not set.
TEST(KaUsage, an_empty_word_is_no_number)
{
    expect_refused({"dump", ""}, "NUMBER: takes 0 to 2147483647, not \"\"", "ka dump");
    expect_refused({"trace", ""}, "PID: takes 1 to 2147483647, not \"\"", "ka trace");
    expect_refused({"call", "--trace", "", "m", "f"}, "--trace: takes 0 to 4, not \"\"", "ka call");
}

TEST(KaUsage, a_failure_is_an_object_where_json_is_asked_for)
{
    const std::string no_module = module_folder(CALLER_MODULES) + "/none";
    const std::tuple<Words, int, int> cases[] = {
        {{"list", "--json", no_module}, KA_START, 4},
        {{"list", "--json", "--start", no_module}, KA_START, 4},
        {{"list", "--json", tasks_module, "nobody"}, KA_REFUSED, 3},
        {{"list", "--json"}, KA_ARGUMENT, 2},
        {{"list", "m", "f", "g", "--json"}, KA_ARGUMENT, 2},
        {{"check", "--json"}, KA_ARGUMENT, 2},
        {{"check", "--deadline", "soon", "m", "--json"}, KA_ARGUMENT, 2},
        {{"dump", "--json", "2147483647"}, KA_ARGUMENT, 4},
        {{"dump", "--json", "--id", "--pid", "1"}, KA_ARGUMENT, 2},
        {{"dump", "--json", ""}, KA_ARGUMENT, 2},
        {{"explain", "--json"}, KA_ARGUMENT, 2},
        {{"explain", "--json", "nonsense"}, KA_ARGUMENT, 2},
        {{"trace", "--json", "2147483647"}, KA_ARGUMENT, 4},
        {{"trace", "--json", "1", "--keep"}, KA_ARGUMENT, 2},
        {{"trace", "--json", std::to_string(getpid())}, KA_ARGUMENT, 4},
        {{"real", "--json", "x"}, KA_ARGUMENT, 2},
        {{"call", "--json", no_module, "f"}, KA_START, 4},
        {{"call", "--json", "--layout", "32", "m", "f"}, KA_ARGUMENT, 2},
        {{"shell", "--json", no_module}, KA_START, 4},
        {{"shell", "--json", "--callback", "((", tasks_module}, KA_ARGUMENT, 2},
    };
    for (const auto &[words, error_class, status] : cases) {
        const Outcome outcome = ka(words);
        const std::string shown = testing::PrintToString(words) + "\n" + outcome.out + outcome.err;
        EXPECT_EQ(outcome.status, status) << shown;
        ASSERT_EQ(outcome.out.find('\n'), outcome.out.size() - 1) << shown;
        const Json json = Json::parse(outcome.out, nullptr, false);
        ASSERT_TRUE(json.is_object()) << shown;
        EXPECT_EQ(json["error"], ka_error_name(error_class)) << shown;
        EXPECT_EQ(json["error_class"], error_class) << shown;
        EXPECT_EQ(json["retry"], "no") << shown;
        EXPECT_EQ("ka: " + json["message"].get<std::string>() + "\n", outcome.err) << shown;
    }
}

// What follows "--" belongs to the function.
TEST(KaUsage, json_behind_two_minus_signs_asks_for_none)
{
    EXPECT_EQ(ka({"call", "--layout", "32", "m", "f", "--", "--json"}).out, "");
}
