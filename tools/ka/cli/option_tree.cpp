// SPDX-License-Identifier: MIT
//
// See option_tree.h.
#include "option_tree.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <sstream>

namespace {

std::string first_line(const std::string &text)
{
    return text.substr(0, text.find('\n'));
}

std::string after_first_line(const std::string &text)
{
    const size_t end = text.find_first_not_of('\n', first_line(text).size());
    return end == std::string::npos ? "" : text.substr(end);
}

// The library writes choices after the value's own name: LAYOUT:{native,64}.
std::vector<std::string> choices_in(const std::string &type_name)
{
    const size_t begin = type_name.find('{');
    const size_t end = type_name.find('}');
    std::vector<std::string> choices;
    if (begin == std::string::npos || end == std::string::npos) return choices;
    std::istringstream list(type_name.substr(begin + 1, end - begin - 1));
    for (std::string choice; std::getline(list, choice, ',');)
        choices.push_back(choice);
    return choices;
}

std::vector<std::string> names_of(const CLI::Option &option)
{
    if (option.get_positional()) return {option.get_name(true, false)};
    std::vector<std::string> names;
    for (const std::string &name : option.get_snames())
        names.push_back("-" + name);
    for (const std::string &name : option.get_lnames())
        names.push_back("--" + name);
    return names;
}

Entry entry_of(const CLI::Option &option)
{
    Entry entry{};
    const std::string type_name = option.get_type_size() == 0 ? "" : option.get_type_name();
    entry.names = names_of(option);
    entry.value = type_name.substr(0, type_name.find(':'));
    entry.choices = choices_in(type_name);
    entry.default_value = option.get_default_str();
    entry.text = option.get_description();
    entry.is_required = option.get_required();
    entry.is_repeated = option.get_expected_max() >= CLI::detail::expected_max_vector_size;
    return entry;
}

// "Usage:" is set off by blank lines in --help.
std::string usage_of(const CLI::App &app, const std::string &name)
{
    const std::string usage = app.get_formatter()->make_help(&app, name, CLI::AppFormatMode::Normal);
    const std::string mark = "\nUsage: ";
    const size_t begin = usage.find(mark) + mark.size();
    return usage.substr(begin, usage.find('\n', begin) - begin);
}

Command command_of(const CLI::App &app, const std::string &full_name)
{
    Command command{};
    command.name = app.get_parent() == nullptr ? "" : app.get_name();
    command.summary = first_line(app.get_description());
    command.details = after_first_line(app.get_description());
    command.usage = usage_of(app, full_name);
    command.footer = app.get_footer();
    for (const CLI::Option *option : app.get_options()) {
        if (option->get_group().empty()) continue; // hidden
        (option->get_positional() ? command.arguments : command.options).push_back(entry_of(*option));
    }
    return command;
}

// The list of subcommands has one line for each.
struct Help : CLI::Formatter {
    std::string make_subcommand(const CLI::App *command) const override
    {
        std::ostringstream out;
        CLI::detail::format_help(out, command->get_display_name(true), first_line(command->get_description()),
                                 get_column_width());
        return out.str();
    }
};

} // namespace

std::vector<Command> commands_of(const CLI::App &app)
{
    std::vector<Command> commands = {command_of(app, app.get_name())};
    for (const CLI::App *subcommand : app.get_subcommands({}))
        if (!subcommand->get_group().empty())
            commands.push_back(command_of(*subcommand, app.get_name() + " " + subcommand->get_name()));
    return commands;
}

void shorten_help(CLI::App &app)
{
    app.formatter(std::make_shared<Help>());
}

std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

std::vector<std::string> option_names(const CLI::App *command)
{
    std::vector<std::string> names;
    for (const CLI::Option *option : command->get_options())
        if (option->get_name().starts_with('-')) names.push_back(option->get_name());
    return names;
}
