// SPDX-License-Identifier: MIT
//
// See find.h.
#include "find.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <optional>
#include <regex>
#include <sstream>
#include <strings.h>

#include "ka/caller.h"

namespace {

using Rows = std::vector<const Explanation *>;

constexpr size_t line_max = 1000; // of a message; the rest is not looked at

// ---- Numbers and names -----------------------------------------------------------------------------------------

std::optional<int> number_of(const std::string &text)
{
    static const std::regex form("[+-]?[0-9]{1,9}");
    if (!std::regex_match(text, form)) return std::nullopt;
    return std::stoi(text);
}

bool is_signal(const Explanation &row)
{
    return std::strncmp(row.name, "SIG", 3) == 0;
}

// A shell reports the death of a program as 128 and the signal.
Rows find_number(int number)
{
    Rows found;
    for (const Explanation &row : explanations()) {
        const bool by_signal = is_signal(row) && row.number + 128 == number;
        if (row.number == number || by_signal) found.push_back(&row);
    }
    return found;
}

// "exit status 139", as people and reports say it, "Error 127", as make does: no return code of a call.
Rows find_status(const std::string &text)
{
    static const std::regex form(
        "(?:.*\\b)?(?:(?:exit )?status|exit code|exited with|exit|Error) ([0-9]{1,3})\\W*(?:\\(.*\\))?",
        std::regex::icase);
    std::smatch found;
    Rows statuses;
    if (text.size() > line_max || !std::regex_match(text, found, form)) return statuses;
    const bool is_of_host = text.find("host") != std::string::npos || text.find("ended") != std::string::npos;
    const std::string layer = is_of_host ? "exit status of a host" : "exit status";
    for (const Explanation *row : find_number(std::stoi(found[1]))) {
        const bool is_status = std::string(row->layer).starts_with(layer);
        const bool is_death = is_signal(*row) && row->number + 128 == std::stoi(found[1]);
        if (is_status || is_death) statuses.push_back(row);
    }
    return statuses;
}

// "return code 8", as ka shows it, also with a reason behind it: neither a signal nor a status of a process.
std::optional<int> return_code_of(const std::string &text)
{
    static const std::regex form("(?:.*\\breturn )?code (-?[0-9]{1,9})(?:\\W.*)?", std::regex::icase);
    std::smatch found;
    if (text.size() > line_max || !std::regex_match(text, found, form)) return std::nullopt;
    return std::stoi(found[1]);
}

Rows find_return_code(const std::string &text)
{
    Rows codes;
    const auto number = return_code_of(text);
    if (!number) return codes;
    for (const Explanation *row : find_number(*number)) {
        const std::string layer = row->layer;
        if (layer.starts_with("return code") || layer.starts_with("status of")) codes.push_back(row);
    }
    return codes;
}

bool equal(const std::string &a, const char *b)
{
    return !a.empty() && strcasecmp(a.c_str(), b) == 0;
}

bool is_class_named(const Explanation &row, const std::string &text)
{
    const bool is_class = std::strcmp(row.layer, "error of libkacall") == 0 && row.number != NO_NUMBER;
    return is_class && equal(text, ka_error_name(row.number));
}

// Without SIG too, and by the system's own name: SIGIO is SIGPOLL.
bool is_signal_named(const Explanation &row, const std::string &text)
{
    const bool has_prefix = strncasecmp(text.c_str(), "SIG", 3) == 0;
    const std::string name = has_prefix ? text.substr(3) : text;
    return is_signal(row) && (equal(name, row.name + 3) || equal(name, sigabbrev_np(row.number)));
}

Rows find_name(const std::string &text)
{
    Rows found;
    for (const Explanation &row : explanations()) {
        if (equal(text, row.name) || is_signal_named(row, text) || is_class_named(row, text)) found.push_back(&row);
    }
    return found;
}

// ---- Messages --------------------------------------------------------------------------------------------------

struct Match {
    const Explanation *row;
    size_t begin, end;
    size_t weight; // characters of the form that are the message's own
};

// %s, %d and %x in a form stand for values.
std::string pattern_of(const std::string &form)
{
    std::string pattern;
    for (size_t i = 0; i < form.size(); i++) {
        const bool is_value = form[i] == '%' && i + 1 < form.size();
        if (is_value && form[++i] != 's') {
            pattern += form[i] == 'd' ? "-?[0-9]+" : "[0-9a-f]+";
        } else if (is_value) {
            pattern += ".*";
        } else {
            if (std::strchr("\\^$.|?*+()[]{}", form[i]) != nullptr) pattern += '\\';
            pattern += form[i];
        }
    }
    return pattern;
}

// At an end of a form any text need not be matched at all: the message may be part of a line.
std::string without_ends(std::string form)
{
    if (form.starts_with("%s")) form.erase(0, 2);
    if (form.ends_with("%s")) form.erase(form.size() - 2);
    return form;
}

// What a form says itself, between its values.
std::vector<std::string> own_parts(const std::string &form)
{
    std::vector<std::string> parts(1);
    for (size_t i = 0; i < form.size(); i++) {
        if (form[i] == '%' && i + 1 < form.size()) {
            parts.emplace_back();
            i++;
        } else {
            parts.back() += form[i];
        }
    }
    return parts;
}

// Whether the text has all of them in their order: else it does not match the form, which a regular expression would
// take long to find out.
bool has_parts(const std::string &text, const std::vector<std::string> &parts)
{
    size_t at = 0;
    return std::all_of(parts.begin(), parts.end(), [&](const std::string &part) {
        at = text.find(part, at);
        if (at != std::string::npos) at += part.size();
        return at != std::string::npos;
    });
}

// A form without a letter says too little to be looked for inside a line.
std::optional<Match> match(const Explanation &row, const std::string &form, const std::string &text)
{
    const auto is_letter = [](unsigned char c) { return std::isalpha(c) != 0; };
    const std::vector<std::string> parts = own_parts(form);
    if (!has_parts(text, parts)) return std::nullopt;
    const std::string own = std::accumulate(parts.begin(), parts.end(), std::string());
    const bool whole = std::none_of(own.begin(), own.end(), is_letter);
    const std::regex pattern(pattern_of(whole ? form : without_ends(form)));
    std::smatch found;
    if (!(whole ? std::regex_match(text, found, pattern) : std::regex_search(text, found, pattern)))
        return std::nullopt;
    const auto begin = static_cast<size_t>(found.position());
    return Match{&row, begin, begin + static_cast<size_t>(found.length()), own.size()};
}

std::vector<Match> matches_of(const std::string &text)
{
    std::vector<Match> matches;
    for (const Explanation &row : explanations()) {
        std::istringstream forms(row.messages);
        for (std::string form; std::getline(forms, form);)
            if (const auto found = match(row, form, text)) matches.push_back(*found);
    }
    std::stable_sort(matches.begin(), matches.end(),
                     [](const Match &a, const Match &b) { return a.weight > b.weight; });
    return matches;
}

// What says most comes first; what matched only inside of it says nothing more.
Rows find_message(const std::string &text)
{
    std::vector<Match> kept;
    Rows found;
    for (const Match &each : matches_of(text.substr(0, line_max))) {
        const auto covers = [&](const Match &better) { return better.begin <= each.begin && each.end <= better.end; };
        if (std::any_of(kept.begin(), kept.end(), covers)) continue;
        kept.push_back(each);
        if (std::find(found.begin(), found.end(), each.row) == found.end()) found.push_back(each.row);
    }
    return found;
}

// ---- Blanks around ---------------------------------------------------------------------------------------------

std::string trimmed(const std::string &text)
{
    const char *blanks = " \t\r\n";
    const size_t begin = text.find_first_not_of(blanks);
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

} // namespace

bool may_be_own_code(const std::string &text)
{
    return number_of(trimmed(text)).has_value() || return_code_of(trimmed(text)).has_value();
}

std::vector<const Explanation *> look_up(const std::string &line)
{
    const std::string text = trimmed(line);
    if (const auto number = number_of(text)) return find_number(*number);
    const Rows named = find_name(text);
    if (!named.empty()) return named;
    Rows found = find_message(text);
    for (const Rows &more : {find_return_code(text), find_status(text)})
        for (const Explanation *row : more)
            if (std::find(found.begin(), found.end(), row) == found.end()) found.push_back(row);
    return found;
}
