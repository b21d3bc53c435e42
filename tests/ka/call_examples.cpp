// SPDX-License-Identifier: MIT
//
// The examples in the help of list and call are commands that work, in the folder of the example modules.
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "ka/command.h"

namespace {

std::vector<std::string> examples_of(const std::string &subcommand)
{
    const std::string help = ka({subcommand, "--help"}).out;
    const size_t begin = help.find("Examples:\n");
    std::vector<std::string> examples;
    std::istringstream lines(help.substr(std::min(begin, help.size())));
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line) && line.starts_with("  "))
        examples.push_back(line);
    return examples;
}

} // namespace

TEST(KaCallExamples, work)
{
    const std::string folder = std::filesystem::path(KA_COMMAND).parent_path();
    const std::string setting = "cd " + examples_folder(KA_EXAMPLES) + " && PATH=" + folder + ":$PATH && ";
    for (const char *subcommand : {"list", "call"}) {
        const std::vector<std::string> examples = examples_of(subcommand);
        EXPECT_GE(examples.size(), 3u);
        for (const std::string &example : examples) {
            const std::string command = setting + example + " >/dev/null 2>&1";
            EXPECT_EQ(std::system(command.c_str()), 0) << example;
        }
    }
}
