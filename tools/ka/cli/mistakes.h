// SPDX-License-Identifier: MIT
//
// What is said when the words of a command line cannot be understood.
#ifndef KA_TOOL_CLI_MISTAKES_H
#define KA_TOOL_CLI_MISTAKES_H

#include <string>
#include <vector>

namespace CLI {
class App;
class ParseError;
} // namespace CLI

struct Range {
    int least;
    int most;
};

// "unknown option WORD", with the nearest of those that there are.
std::string unknown_option(const std::string &word, const std::vector<std::string> &names);

// The mistake of a value; empty when it is good.
std::string fault_of_number(const std::string &text, const Range &range);
std::string fault_of_choice(const std::string &text, const std::vector<std::string> &choices);

// Says what is wrong with the words that app could not take; returns the exit status. words: as given.
int refuse_usage(const CLI::App &app, const CLI::ParseError &error, const std::vector<std::string> &words);

#endif
