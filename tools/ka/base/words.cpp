// SPDX-License-Identifier: MIT
//
// See words.h.
#include "words.h"

#include <algorithm>

static constexpr char mark = '\x01';

// "++" would end the subcommand, and a word that begins with the mark would lose it.
static void mark_words(std::vector<std::string> &words)
{
    const auto end = std::find(words.begin(), words.end(), "--");
    const auto is_taken = [](const std::string &word) { return word == "++" || word.starts_with(mark); };
    for (auto word = words.begin(); word != words.end(); ++word)
        if (word > end || is_taken(*word)) word->insert(word->begin(), mark);
    if (end != words.end()) words.erase(end);
}

// A "--" would end the subcommand real, which needs none: numbers with a minus sign reach it as they are.
std::vector<std::string> command_words(int argc, char **argv)
{
    std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
    if (!words.empty() && words[0] == "real") std::erase(words, "--");
    if (!words.empty() && (words[0] == "call" || words[0] == "debug")) mark_words(words);
    std::reverse(words.begin(), words.end());
    return words;
}

bool take_mark(std::string &word)
{
    if (!word.starts_with(mark)) return false;
    word.erase(0, 1);
    return true;
}
