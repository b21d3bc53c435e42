// SPDX-License-Identifier: MIT
//
// See mistakes.h. The command-line library distinguishes mistakes by the classes of its exceptions; which words and
// which options they are about is asked of the tree that parsed them.
#include "mistakes.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <charconv>

#include "base/nearest.h"
#include "base/text.h"
#include "call/failure.h"
#include "ka/caller.h"
#include "option_tree.h"

namespace {

std::string quoted(const std::string &word)
{
    return "\"" + shortened(word) + "\"";
}

bool is_within(const std::string &text, const Range &range)
{
    int value = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && stop == end && value >= range.least && value <= range.most;
}

std::string meant(const std::string &nearest)
{
    return nearest.empty() ? "" : " (did you mean " + nearest + "?)";
}

// The subcommand whose words were being read, or ka itself.
const CLI::App &command_in(const CLI::App &app)
{
    return app.get_subcommands().empty() ? app : *app.get_subcommands()[0];
}

std::vector<std::string> subcommand_names(const CLI::App &app)
{
    std::vector<std::string> names;
    for (const CLI::App *command : app.get_subcommands({}))
        names.push_back(command->get_name());
    return names;
}

// Empty when all are known.
std::string describe_unknown_option(const CLI::App &command)
{
    const std::vector<std::string> words = command.remaining();
    const auto begins_like_option = [](const std::string &word) { return word.size() > 1 && word[0] == '-'; };
    const auto option = std::find_if(words.begin(), words.end(), begins_like_option);
    return option == words.end() ? "" : unknown_option(*option, option_names(&command));
}

std::string describe_extras(const CLI::App &app, const CLI::App &command)
{
    const std::vector<std::string> words = command.remaining();
    if (words.empty()) return "unexpected argument";
    std::string unknown = describe_unknown_option(command);
    if (!unknown.empty()) return unknown;
    if (&command == &app)
        return "unknown subcommand " + quoted(words[0]) + meant(nearest_word(subcommand_names(app), words[0]));
    return "unexpected argument " + quoted(words[0]);
}

// An option that was not understood may be what was meant for it.
std::string describe_missing(const CLI::App &command)
{
    std::string unknown = describe_unknown_option(command);
    if (!unknown.empty()) return unknown;
    for (const CLI::Option *option : command.get_options())
        if (option->get_required() && option->empty()) return option->get_name() + " is missing";
    return "a word is missing";
}

// The message begins with the option that it is about; a flag without its minus signs.
const CLI::Option *option_in(const CLI::App &command, const CLI::ParseError &error)
{
    const std::string text = error.what();
    const std::string name = text.substr(0, text.find_first_of(": "));
    const CLI::Option *option = command.get_option_no_throw(name);
    return option != nullptr ? option : command.get_option_no_throw("--" + name);
}

std::string describe_option(const CLI::App &command, const CLI::ParseError &error)
{
    const CLI::Option *option = option_in(command, error);
    if (option == nullptr) return error.what();
    if (option->get_items_expected_max() == 0) return option->get_name() + " takes no value";
    if (option->results().size() > 1) return option->get_name() + " is given more than once";
    return option->get_name() + " needs a value: " + option->get_type_name();
}

std::string describe(const CLI::App &app, const CLI::App &command, const CLI::ParseError &error)
{
    if (dynamic_cast<const CLI::ExtrasError *>(&error) != nullptr) return describe_extras(app, command);
    if (dynamic_cast<const CLI::RequiredError *>(&error) != nullptr) return describe_missing(command);
    if (dynamic_cast<const CLI::ValidationError *>(&error) != nullptr) return error.what(); // by a check of ours
    return describe_option(command, error);
}

// The library gives up at the first mistake: --json can follow it.
Form wanted_form(const CLI::App &command, const std::vector<std::string> &words)
{
    if (command.get_option_no_throw("--json") == nullptr) return Form::text;
    const auto end = std::find(words.begin(), words.end(), "--");
    return std::find(words.begin(), end, "--json") != end ? Form::json : Form::text;
}

} // namespace

std::string unknown_option(const std::string &word, const std::vector<std::string> &names)
{
    return "unknown option " + shortened(word) + meant(nearest_word(names, word.substr(0, word.find('='))));
}

std::string fault_of_number(const std::string &text, const Range &range)
{
    if (is_within(text, range)) return "";
    return "takes " + std::to_string(range.least) + " to " + std::to_string(range.most) + ", not " + quoted(text);
}

std::string fault_of_choice(const std::string &text, const std::vector<std::string> &choices)
{
    if (std::find(choices.begin(), choices.end(), text) != choices.end()) return "";
    std::string list = choices[0];
    for (size_t i = 1; i < choices.size(); i++)
        list += (i + 1 == choices.size() ? " or " : ", ") + choices[i];
    return "takes " + list + ", not " + quoted(text);
}

int refuse_usage(const CLI::App &app, const CLI::ParseError &error, const std::vector<std::string> &words)
{
    const CLI::App &command = command_in(app);
    const std::string name = &command == &app ? "ka" : "ka " + command.get_name();
    return report_failure(KA_ARGUMENT, describe(app, command, error) + "; see " + name + " --help",
                          wanted_form(command, words));
}
