// SPDX-License-Identifier: MIT
//
// See words.h.
#include "words.h"

#include "values/literal.h"

namespace {

// Reads a line from left to right.
struct Splitter {
    std::string_view rest;
    const Variables &variables;
    std::vector<std::string> words;
    std::string word;

    char take()
    {
        const char c = rest.front();
        rest.remove_prefix(1);
        return c;
    }
};

bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

// From the opening quote to the closing one. A backslash takes the next character along, so that a text can
// have quotes.
void take_text(Splitter &splitter)
{
    splitter.word += splitter.take();
    while (!splitter.rest.empty()) {
        const char c = splitter.take();
        splitter.word += c;
        if (c == '\'') return;
        if (c == '\\' && !splitter.rest.empty()) splitter.word += splitter.take();
    }
    throw Malformed("the closing quote is missing");
}

void take_double_quoted(Splitter &splitter)
{
    splitter.take();
    const size_t end = splitter.rest.find('"');
    if (end == std::string_view::npos) throw Malformed("the closing double quote is missing");
    splitter.word += splitter.rest.substr(0, end);
    splitter.rest.remove_prefix(end + 1);
}

std::string known_names(const Variables &variables)
{
    std::string names;
    for (const auto &[name, value] : variables)
        names += (names.empty() ? "; these are known: $" : " $") + name;
    return names;
}

void take_variable(Splitter &splitter)
{
    size_t length = 1;
    while (length < splitter.rest.size() && is_name_character(splitter.rest[length]))
        length++;
    const std::string name(splitter.rest.substr(1, length - 1));
    const auto variable = splitter.variables.find(name);
    if (variable == splitter.variables.end())
        throw Malformed("there is no variable $" + name + known_names(splitter.variables));
    splitter.word += variable->second;
    splitter.rest.remove_prefix(length);
}

// An apostrophe inside a word is one: don't.
bool opens_text(const std::string &word)
{
    return word.empty() || word.find_last_of("&[, ") == word.size() - 1;
}

bool stands_for_value(const Splitter &splitter)
{
    return !splitter.words.empty() && splitter.rest.size() > 1 && is_name_character(splitter.rest[1]);
}

void take_word(Splitter &splitter)
{
    int brackets = 0;
    while (!splitter.rest.empty()) {
        const char c = splitter.rest.front();
        if (is_blank(c) && brackets == 0) break;
        if (c == '\'' && opens_text(splitter.word)) {
            take_text(splitter);
        } else if (c == '"' && splitter.word.empty()) {
            take_double_quoted(splitter);
        } else if (c == '$' && stands_for_value(splitter)) {
            take_variable(splitter);
        } else {
            if (c == '[') brackets++;
            if (c == ']' && brackets > 0) brackets--;
            splitter.word += splitter.take();
        }
    }
    if (brackets > 0) throw Malformed("the closing bracket is missing");
}

} // namespace

bool is_name_character(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

std::vector<std::string> words_of_line(std::string_view line, const Variables &variables)
{
    Splitter splitter{line, variables, {}, {}};
    while (true) {
        while (!splitter.rest.empty() && is_blank(splitter.rest.front()))
            splitter.take();
        if (splitter.rest.empty() || splitter.rest.front() == '#') return splitter.words;
        take_word(splitter);
        splitter.words.push_back(std::move(splitter.word));
        splitter.word.clear();
    }
}

std::string variable_name(const std::string &argument)
{
    std::string name;
    for (char c : argument) {
        if (is_name_character(c))
            name += c;
        else if (!name.empty() && !name.ends_with('_'))
            name += '_';
    }
    while (name.ends_with('_') && !argument.ends_with('_'))
        name.pop_back();
    return name.empty() ? "result" : name;
}
