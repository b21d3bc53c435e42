// SPDX-License-Identifier: MIT
//
// See subcommand.h.
#include "subcommand.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <utility>

#include "base/exit_status.h"
#include "mistakes.h"

namespace {

struct FixedUsage : CLI::Formatter {
    explicit FixedUsage(std::string usage) : usage_(std::move(usage)) {}
    std::string make_usage(const CLI::App *, std::string) const override { return "\nUsage: " + usage_ + "\n"; }

private:
    std::string usage_;
};

CLI::Validator one_of(const std::vector<std::string> &choices)
{
    std::string description;
    for (const std::string &choice : choices)
        description += (description.empty() ? "{" : ",") + choice;
    return {[choices](const std::string &text) { return fault_of_choice(text, choices); }, description + "}"};
}

CLI::Validator within(Range range)
{
    return {[range](const std::string &text) { return fault_of_number(text, range); }, ""};
}

// A description would follow the value's name in --help: choices do, a range does not.
template <typename Value>
void add(CLI::App *command, const Option &option, Value &value)
{
    CLI::Option *added = command->add_option(option.name, value, option.text);
    if (!option.choices.empty()) added->check(one_of(option.choices));
    if (option.range) added->check(within(*option.range));
    if (option.fault != nullptr) added->check(option.fault);
    if (option.shows_default) added->capture_default_str();
    added->required(option.is_required)->type_name(option.value);
}

} // namespace

CLI::App *add_subcommand(CLI::App &app, const Subcommand &subcommand)
{
    CLI::App *command = app.add_subcommand(subcommand.name, subcommand.description);
    command->footer(subcommand.examples + "\n" + exit_status_help());
    if (!subcommand.usage.empty())
        command->formatter(std::make_shared<FixedUsage>("ka " + subcommand.name + " " + subcommand.usage));
    return command;
}

void add_flag(CLI::App *command, const std::string &name, bool &value, const std::string &text)
{
    command->add_flag(name, value, text)->disable_flag_override(); // else --json=no would be taken
}

void add_option(CLI::App *command, const Option &option, std::string &value)
{
    add(command, option, value);
}

void add_option(CLI::App *command, const Option &option, int32_t &value)
{
    Option number = option;
    if (!number.range) number.range = Range{INT32_MIN, INT32_MAX};
    add(command, number, value);
}

void add_option(CLI::App *command, const Option &option, size_t &value)
{
    add(command, option, value);
}

bool is_given(const CLI::App *command, const std::string &name)
{
    return command->count(name) > 0;
}

void take_extra_words(CLI::App *command)
{
    command->allow_extras();
}

std::vector<std::string> extra_words(const CLI::App *command)
{
    return command->remaining();
}

void when_chosen(CLI::App *command, int &exit_status, std::function<int()> run)
{
    command->callback([run = std::move(run), &exit_status] { exit_status = run(); });
}
