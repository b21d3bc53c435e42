// SPDX-License-Identifier: MIT
//
// The examples in the help of a subcommand are commands that work.
#include "ka/command.h"

#include <sstream>

#include "ka/help_examples.h"

std::vector<std::string> help_examples(const std::string &subcommand)
{
    const std::string help = ka({subcommand, "--help"}).out;
    std::vector<std::string> examples;
    std::istringstream lines(help.substr(std::min(help.size(), help.find("Examples:"))));
    for (std::string line; std::getline(lines, line) && (line.starts_with("Examples:") || line.starts_with("  "));)
        if (line.starts_with("  ka ")) examples.push_back(line.substr(5));
    EXPECT_FALSE(examples.empty()) << subcommand;
    return examples;
}

Outcome run_example(const std::string &words, const std::string &directory)
{
    const std::string command = "cd " + directory + " && exec " KA_COMMAND " " + words + " 2>&1";
    FILE *pipe = popen(command.c_str(), "r");
    Outcome outcome{};
    char buffer[4096];
    for (size_t length; (length = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        outcome.out.append(buffer, length);
    const int status = pclose(pipe);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return outcome;
}

TEST(KaExplainHelp, examples_work)
{
    for (const std::string &example : help_examples("explain")) {
        const Outcome outcome = run_example(example, ".");
        EXPECT_EQ(outcome.status, 0) << example << "\n" << outcome.out;
    }
}
