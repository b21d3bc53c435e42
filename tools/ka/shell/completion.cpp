// SPDX-License-Identifier: MIT
//
// See completion.h.
#include "completion.h"

#include <algorithm>

#include "base/text.h"
#include "module/signatures.h"
#include "orders.h"

namespace {

// Where the word at the end begins: after the last blank, at the $ of a variable's name when it is one.
size_t word_begin(const std::string &before)
{
    const size_t blank = before.find_last_of(" \t");
    const size_t word = blank == std::string::npos ? 0 : blank + 1;
    size_t name = before.size();
    while (name > word && is_name_character(before[name - 1]))
        name--;
    return name > word && before[name - 1] == '$' ? name - 1 : word;
}

std::string first_word(const std::string &line)
{
    const size_t begin = line.find_first_not_of(" \t");
    if (begin == std::string::npos) return "";
    const size_t end = line.find_first_of(" \t", begin);
    return end == std::string::npos ? "" : line.substr(begin, end - begin); // none before it is complete
}

// The first line has a word before it.
std::string indented(const std::string &word, const std::string &about)
{
    std::string text;
    for (const std::string &line : shown_lines(about))
        text += "\n  " + (text.empty() ? word : "") + line;
    return text;
}

// What it takes, and below that what its author has written.
std::string signature(const Session &session, const std::string &name)
{
    for (const Function &function : session.functions()) {
        if (function.name != name) continue;
        std::string text = printable(name);
        std::string about = function.about.empty() ? "" : indented("", function.about);
        for (const Prototype &prototype : function.prototypes) {
            text += " " + printable(prototype.name) + ":" + kind_name(prototype.kind);
            if (!prototype.about.empty()) about += indented(printable(prototype.name) + ": ", prototype.about);
        }
        return text + about;
    }
    return "";
}

// Those that can be typed.
std::vector<std::string> function_names(const Session &session)
{
    std::vector<std::string> names;
    for (const Function &function : session.functions())
        if (printable(function.name) == function.name) names.push_back(function.name);
    return names;
}

std::vector<std::string> candidates(const Session &session, const std::string &first, const std::string &word)
{
    std::vector<std::string> words;
    if (word.starts_with('$')) {
        for (const auto &[name, value] : session.variables())
            words.push_back("$" + name);
    } else if (first.empty()) {
        words = word.starts_with(':') ? order_names() : function_names(session);
    } else if (first.size() > 1 && std::string(":list").starts_with(first)) {
        words = function_names(session);
    }
    return words;
}

} // namespace

Completion complete_line(const Session &session, const std::string &before)
{
    Completion completion{word_begin(before), {}, {}};
    const std::string word = before.substr(completion.begin);
    const std::string first = first_word(before);
    for (const std::string &candidate : candidates(session, first, word))
        if (candidate.starts_with(word)) completion.words.push_back(candidate);
    std::sort(completion.words.begin(), completion.words.end());
    completion.words.erase(std::unique(completion.words.begin(), completion.words.end()), completion.words.end());
    if (completion.words.empty()) completion.hint = signature(session, first);
    return completion;
}
