// SPDX-License-Identifier: MIT
//
// The command line of ka as plain records, read from the very tree that parses it. The manual page and the completion
// are made from these, so they say what --help says.
#ifndef KA_TOOL_CLI_OPTION_TREE_H
#define KA_TOOL_CLI_OPTION_TREE_H

#include <string>
#include <vector>

namespace CLI {
class App;
}

// An option, or an argument that is known by its place: its one name is then the word that stands for it.
struct Entry {
    std::vector<std::string> names;
    std::string value; // the word that stands for the value; empty for a flag, and for an argument
    std::vector<std::string> choices;
    std::string default_value;
    std::string text;
    bool is_required;
    bool is_repeated;
};

struct Command {
    std::string name;    // empty for ka itself
    std::string summary; // one line
    std::string details;
    std::string usage; // without "Usage:"
    std::string footer;
    std::vector<Entry> options;
    std::vector<Entry> arguments;
};

// ka itself first, then every subcommand.
std::vector<Command> commands_of(const CLI::App &app);

// The names of a subcommand's options, with their dashes.
std::vector<std::string> option_names(const CLI::App *command);

// Lets the help of app and its subcommands-to-be show one line for each subcommand.
void shorten_help(CLI::App &app);

// The lines of a text without their ends.
std::vector<std::string> lines_of(const std::string &text);

#endif
