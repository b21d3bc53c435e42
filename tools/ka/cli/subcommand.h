// SPDX-License-Identifier: MIT
//
// Subcommands and their options, declared as plain records. The command-line library is hidden in these functions,
// so that few sources include its headers: they cost a compiler several seconds each time.
#ifndef KA_TOOL_CLI_SUBCOMMAND_H
#define KA_TOOL_CLI_SUBCOMMAND_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "mistakes.h"

namespace CLI {
class App;
}

struct Subcommand {
    std::string name;
    std::string description; // the first line is the summary
    std::string examples;    // the exit statuses follow them in --help
    std::string usage = {};  // after "ka NAME "; empty: made from the options and arguments
};

// What takes a value: by its name, which begins with dashes, or by its place.
struct Option {
    std::string name;
    std::string value = {}; // the word that stands for the value; none for an argument, whose name does
    std::string text;
    bool is_required = false;
    bool shows_default = false;
    std::vector<std::string> choices = {};
    std::optional<Range> range = {};
    std::string (*fault)(const std::string &text) = nullptr; // what is wrong with a value; empty when it is good
};

CLI::App *add_subcommand(CLI::App &app, const Subcommand &subcommand);

// Each declaration stores into value, which lives until the command line is parsed and the subcommand has run.
void add_flag(CLI::App *command, const std::string &name, bool &value, const std::string &text);
void add_option(CLI::App *command, const Option &option, std::string &value);
void add_option(CLI::App *command, const Option &option, int32_t &value);
void add_option(CLI::App *command, const Option &option, size_t &value);

bool is_given(const CLI::App *command, const std::string &name);

// Words that nothing was declared for are taken too, also such as begin with a minus sign; extra_words has them.
void take_extra_words(CLI::App *command);
std::vector<std::string> extra_words(const CLI::App *command);

// Once the command line is parsed, the subcommand it chooses runs; what it gives is stored as the exit status.
void when_chosen(CLI::App *command, int &exit_status, std::function<int()> run);

#endif
