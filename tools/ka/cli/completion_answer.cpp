// SPDX-License-Identifier: MIT
//
// See completion_answer.h. The tree of options says what can follow; the words for values, MODULE and FILE, say how
// they are completed.
#include "completion_answer.h"

#include <algorithm>
#include <cstdlib>
#include <set>

#include "base/text.h"
#include "module/find.h"
#include "module/functions.h"
#include "option_tree.h"

namespace {

// ---- The words before the cursor -------------------------------------------------------------------------------

struct Place {
    const Command *command;
    const Entry *option; // null, or that whose value is wanted
    std::vector<std::string> arguments;
    bool options_have_ended;
};

bool has_name(const Entry &option, const std::string &name)
{
    return std::find(option.names.begin(), option.names.end(), name) != option.names.end();
}

const Entry *option_named(const Command &command, const std::string &name)
{
    for (const Entry &option : command.options)
        if (has_name(option, name)) return &option;
    return nullptr;
}

const Command *command_named(const std::vector<Command> &commands, const std::string &name)
{
    for (const Command &command : commands)
        if (command.name == name) return &command;
    return nullptr;
}

void step(const std::vector<Command> &commands, Place &place, const std::string &word)
{
    if (place.option != nullptr) {
        place.option = nullptr;
    } else if (!place.options_have_ended && word == "--") {
        place.options_have_ended = true;
    } else if (!place.options_have_ended && word.starts_with('-')) {
        const Entry *option = option_named(*place.command, word);
        place.option = option != nullptr && !option->value.empty() ? option : nullptr;
    } else if (const Command *command = command_named(commands, word); place.command->name.empty() && command) {
        place.command = command;
    } else {
        place.arguments.push_back(word);
    }
}

// ---- What may be at the cursor ---------------------------------------------------------------------------------

struct Answer {
    std::string form = "words";
    std::string lines;
};

void offer(Answer &answer, const std::string &start, const std::string &word, const std::string &text)
{
    if (!word.starts_with(start)) return;
    answer.lines += word + "\t" + text.substr(0, text.find('\n')) + "\n";
}

// A shell hands on "~/" as it was typed.
std::string path_of(const std::string &word)
{
    const char *home = std::getenv("HOME");
    return word.starts_with("~/") && home != nullptr ? home + word.substr(1) : word;
}

// "a b sum: adds two numbers"
std::string description_of(const Function &function)
{
    std::string text;
    for (const Prototype &prototype : function.prototypes)
        text += (text.empty() ? "" : " ") + printable(prototype.name);
    return text + (text.empty() || function.about.empty() ? "" : ": ") + shown_lines(function.about)[0];
}

void offer_functions(Answer &answer, const std::string &start, const std::string &named)
{
    std::set<std::string> seen;
    std::string module = path_of(named);
    find_module(module);
    for (const Function &function : read_tables(module).functions) {
        const bool can_be_typed = printable(function.name) == function.name;
        if (can_be_typed && seen.insert(function.name).second)
            offer(answer, start, function.name, description_of(function));
    }
}

// The values that an option or an argument can have: the word that stands for it says so. before is the beginning of
// the same word: "--layout=".
Answer values_of(const Entry &entry, const std::string &word, const std::string &before, const Place &place)
{
    Answer answer;
    const std::string &what = entry.value.empty() ? entry.names[0] : entry.value;
    if (what == "MODULE") {
        answer.form = "executables";
        for (const std::string &name : modules_in_path())
            offer(answer, word, name, "in KA_PATH");
    }
    if (what.starts_with("FILE")) answer.form = "files";
    if (what == "FUNCTION" && !place.arguments.empty()) offer_functions(answer, word, place.arguments[0]);
    for (const std::string &choice : entry.choices)
        offer(answer, before + word, before + choice, "");
    return answer;
}

Answer options_of(const Command &command, const std::string &word)
{
    Answer answer;
    for (const Entry &option : command.options)
        for (const std::string &name : option.names)
            if (name.starts_with("--") || word == name) offer(answer, word, name, option.text);
    return answer;
}

Answer subcommands(const std::vector<Command> &commands, const std::string &word)
{
    Answer answer;
    for (const Command &command : commands)
        if (!command.name.empty()) offer(answer, word, command.name, command.summary);
    return answer;
}

Answer argument_at(const Place &place, const std::string &word)
{
    const std::vector<Entry> &known = place.command->arguments;
    const size_t at = place.arguments.size();
    if (at < known.size()) return values_of(known[at], word, "", place);
    if (!known.empty() && known.back().is_repeated) return values_of(known.back(), word, "", place);
    return {};
}

Answer answer_at(const std::vector<Command> &commands, const Place &place, const std::string &word)
{
    if (place.option != nullptr) return values_of(*place.option, word, "", place);
    if (!place.options_have_ended && word.starts_with('-')) {
        const size_t equals = word.find('=');
        const Entry *option = option_named(*place.command, word.substr(0, equals));
        if (equals == std::string::npos) return options_of(*place.command, word);
        return option == nullptr ? Answer{}
                                 : values_of(*option, word.substr(equals + 1), word.substr(0, equals + 1), place);
    }
    return place.command->name.empty() ? subcommands(commands, word) : argument_at(place, word);
}

} // namespace

std::string completion_answer(const CLI::App &app, const std::vector<std::string> &words)
{
    const std::vector<Command> commands = commands_of(app);
    Place place{commands.data(), nullptr, {}, false};
    for (size_t i = 0; i + 1 < words.size(); i++)
        step(commands, place, words[i]);
    const Answer answer = answer_at(commands, place, words.empty() ? "" : words.back());
    return answer.form + "\n" + answer.lines;
}
