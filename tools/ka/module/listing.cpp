// SPDX-License-Identifier: MIT
//
// See listing.h.
#include "listing.h"

#include <algorithm>
#include <array>
#include <set>
#include <unistd.h>

#include "base/terminal.h"
#include "base/text.h"
#include "signatures.h"

namespace {

// ---- As a table ------------------------------------------------------------------------------------------------

constexpr size_t columns = 7; // the last two of the long table only
using Row = std::array<std::string, columns>;

std::string min_text(const Prototype &prototype)
{
    const int64_t count = min_elements(prototype);
    return count > 0 ? std::to_string(count) : "";
}

std::string takes_text(const Function &function, const Prototype &prototype)
{
    const auto position = static_cast<size_t>(&prototype - function.prototypes.data());
    if (position >= used_prototypes(function)) return "nothing: it follows a VarArg";
    if (!is_kind(prototype.kind)) return "nothing: there is no such kind";
    return types_taken_by(prototype) +
           (changes(prototype.kind) ? "; comes back if by reference" : "; never comes back");
}

// Empty where an argument is never taken.
std::string by_value_of(const Function &function, const Prototype &prototype)
{
    const auto position = static_cast<size_t>(&prototype - function.prototypes.data());
    const bool is_taken = position < used_prototypes(function) && is_kind(prototype.kind);
    return is_taken ? by_value_text(prototype.kind) : "";
}

std::vector<Row> rows_of(const Function &function, bool is_hidden, Length length)
{
    std::vector<Row> rows;
    if (length == Length::full && !function.about.empty())
        for (const std::string &line : shown_lines(function.about))
            rows.push_back({"", line});
    for (const Prototype &prototype : function.prototypes) {
        const std::string takes = takes_text(function, prototype);
        const std::string name = prototype.name.empty() ? "(unnamed)" : printable(prototype.name);
        rows.push_back({"", name, kind_name(prototype.kind), takes, min_text(prototype)});
        if (length == Length::usual) continue;
        rows.back()[columns - 2] = by_value_of(function, prototype);
        const std::vector<std::string> about = shown_lines(prototype.about);
        rows.back()[columns - 1] = about[0];
        for (size_t i = 1; i < about.size(); i++)
            rows.emplace_back()[columns - 1] = about[i];
    }
    if (function.prototypes.empty()) rows.push_back({"", "-"});
    rows[0][0] = printable(function.name);
    if (is_hidden) rows.push_back({"", "(never called: another function of that name comes before it)"});
    return rows;
}

// Characters, not bytes: those that go on a character of several bytes take no room.
size_t width_of(const std::string &text)
{
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

// A remark, which has no kind, is not counted; the name of its function is.
std::array<size_t, columns> widths_of(const std::vector<Row> &rows)
{
    std::array<size_t, columns> widths{};
    for (const Row &row : rows)
        for (size_t i = 0; i < columns; i++)
            if (i == 0 || !row[2].empty()) widths[i] = std::max(widths[i], width_of(row[i]));
    return widths;
}

std::string line_of(const Row &row, const std::array<size_t, columns> &widths, Paint first)
{
    std::string line;
    for (size_t i = 0; i < columns; i++) {
        const size_t padding = widths[i] > width_of(row[i]) ? widths[i] - width_of(row[i]) : 0;
        line += (i == 0 && !row[0].empty() ? painted(row[0], first, STDOUT_FILENO) : row[i]);
        line += std::string(padding + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line + "\n";
}

Json prototype_json(const Function &function, const Prototype &prototype)
{
    JsonObject json;
    json.add("name", prototype.name).add("kind", kind_name(prototype.kind));
    json.add("takes", takes_text(function, prototype));
    const std::string by_value = by_value_of(function, prototype);
    if (!by_value.empty()) json.add("by_value", by_value);
    if (min_elements(prototype) > 0) json.add("min_elements", min_elements(prototype));
    if (!prototype.about.empty()) json.add("about", prototype.about);
    return json;
}

} // namespace

std::string functions_text(const std::vector<Function> &functions, Length length)
{
    std::vector<Row> rows = {{"FUNCTION", "ARGUMENT", "KIND", "TAKES", "MIN ELEMENTS"}};
    if (length == Length::full)
        rows[0] = {"FUNCTION", "ARGUMENT", "KIND", "TAKES", "MIN ELEMENTS", "BY VALUE", "ABOUT"};
    std::set<std::string> seen;
    for (const Function &function : functions) {
        const std::vector<Row> own = rows_of(function, !seen.insert(function.name).second, length);
        rows.insert(rows.end(), own.begin(), own.end());
    }
    const std::array<size_t, columns> widths = widths_of(rows);
    std::string text;
    for (const Row &row : rows)
        text += line_of(row, widths, &row == &rows[0] ? Paint::faint : Paint::name);
    return text;
}

Json functions_json(const std::vector<Function> &functions)
{
    JsonArray list;
    for (const Function &function : functions) {
        JsonArray arguments;
        for (const Prototype &prototype : function.prototypes)
            arguments.add(prototype_json(function, prototype));
        JsonObject json;
        json.add("name", function.name).add("arguments", arguments);
        if (!function.about.empty()) json.add("about", function.about);
        list.add(json);
    }
    return list;
}
