// SPDX-License-Identifier: MIT
//
// See command_line.h.
#include "command_line.h"

namespace {

constexpr const char *blanks = " \t\n";

// From the place of the opening quote to that of the closing one; false when there is none.
bool take_quoted(const std::string &line, size_t &at, std::string &word)
{
    const char quote = line[at];
    for (at++; at < line.size() && line[at] != quote; at++) {
        const bool escapes =
            quote == '"' && line[at] == '\\' && at + 1 < line.size() && (line[at + 1] == '"' || line[at + 1] == '\\');
        if (escapes) at++;
        word += line[at];
    }
    return at < line.size();
}

} // namespace

std::optional<std::vector<std::string>> split_command_line(const std::string &line)
{
    std::vector<std::string> words;
    for (size_t at = 0; (at = line.find_first_not_of(blanks, at)) != std::string::npos;) {
        std::string word;
        for (; at < line.size() && std::string(blanks).find(line[at]) == std::string::npos; at++) {
            if (line[at] == '\'' || line[at] == '"') {
                if (!take_quoted(line, at, word)) return std::nullopt;
            } else {
                if (line[at] == '\\' && at + 1 < line.size()) at++;
                word += line[at];
            }
        }
        words.push_back(word);
    }
    if (words.empty() || words[0].empty()) return std::nullopt;
    return words;
}

std::string fault_of_command_line(const std::string &line)
{
    if (split_command_line(line)) return "";
    return line.find_first_not_of(blanks) == std::string::npos
               ? "takes a command, not an empty text"
               : "takes a command; a quote is open, or its name is empty";
}
