// SPDX-License-Identifier: MIT
//
// See list.h.
#include "list.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <array>
#include <iostream>
#include <memory>
#include <set>
#include <unistd.h>

#include "exit_status.h"
#include "ka/dll_block.h"
#include "prototypes.h"
#include "results.h"
#include "terminal.h"

namespace {

struct Wishes {
    std::string module;
    std::string function;
    bool json = false;
};

constexpr const char *description = R"(Lists the functions of a module, with the names and kinds of their arguments.

The module's file is read, not run.)";

constexpr const char *examples = R"(Examples:
  ka list ./adder
  ka list ./tour scale
  ka list --json ./tour
)";

struct ListHelp : CLI::Formatter {
    std::string make_usage(const CLI::App *, std::string) const override
    {
        return "\nUsage: ka list [OPTIONS] MODULE [FUNCTION]\n";
    }
};

// ---- As a table ------------------------------------------------------------------------------------------------

constexpr size_t columns = 5;
using Row = std::array<std::string, columns>;

std::string least_text(const Prototype &prototype)
{
    const int64_t least = least_elements(prototype);
    return least > 0 ? std::to_string(least) : "";
}

std::vector<Row> rows_of(const Function &function, bool is_hidden)
{
    std::vector<Row> rows;
    for (const Prototype &prototype : function.prototypes) {
        const std::string takes = is_kind(prototype.type) ? taken_by(prototype) : "nothing: there is no such kind";
        rows.push_back({"", printable(prototype.name), kind_name(prototype.type), takes, least_text(prototype)});
    }
    if (rows.empty()) rows.push_back({"", "-", "", "", ""});
    rows[0][0] = printable(function.name);
    if (is_hidden) rows.push_back({"", "(never called: another function of that name stands before it)", "", "", ""});
    return rows;
}

// Characters, not bytes: those that go on a character of several bytes take no room.
size_t width_of(const std::string &text)
{
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

// The columns of a remark are not counted.
std::array<size_t, columns> widths_of(const std::vector<Row> &rows)
{
    std::array<size_t, columns> widths{};
    for (const Row &row : rows)
        for (size_t i = 0; i < columns; i++)
            if (!row[1].starts_with('(')) widths[i] = std::max(widths[i], width_of(row[i]));
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

// ---- The command -----------------------------------------------------------------------------------------------

std::string prototype_json(const Prototype &prototype)
{
    const std::string least = least_text(prototype);
    return "{\"name\":" + name_json(prototype.name) + ",\"kind\":" + name_json(kind_name(prototype.type)) +
           ",\"takes\":" + name_json(is_kind(prototype.type) ? taken_by(prototype) : "nothing") +
           (least.empty() ? "" : ",\"least_elements\":" + least) + "}";
}

int show(const Wishes &wishes, const std::vector<Function> &functions)
{
    if (wishes.json) {
        std::cout << "{\"module\":" << name_json(wishes.module) << ",\"functions\":" << functions_json(functions)
                  << "}\n";
    } else {
        std::cout << functions_text(functions);
    }
    std::cout.flush();
    return std::cout ? EXIT_DONE : complain(EXIT_USAGE, "the results could not be written");
}

int run_list(const Wishes &wishes)
{
    const Tables tables = read_tables(wishes.module);
    if (!tables.missing.empty()) return complain(EXIT_NOT_STARTED, wishes.module + ": " + tables.missing);
    if (wishes.function.empty()) return show(wishes, tables.functions);
    try {
        return show(wishes, {find_function(tables.functions, wishes.function)});
    } catch (const Refused &refused) {
        return complain(EXIT_REFUSED, refused.what());
    }
}

} // namespace

std::string functions_text(const std::vector<Function> &functions)
{
    std::vector<Row> rows = {{"FUNCTION", "ARGUMENT", "KIND", "TAKES", "AT LEAST"}};
    std::set<std::string> seen;
    for (const Function &function : functions) {
        const std::vector<Row> own = rows_of(function, !seen.insert(function.name).second);
        rows.insert(rows.end(), own.begin(), own.end());
    }
    const std::array<size_t, columns> widths = widths_of(rows);
    std::string text;
    for (const Row &row : rows)
        text += line_of(row, widths, &row == &rows[0] ? Paint::faint : Paint::name);
    return text;
}

std::string functions_json(const std::vector<Function> &functions)
{
    std::string list;
    for (const Function &function : functions) {
        std::string arguments;
        for (const Prototype &prototype : function.prototypes)
            arguments += (arguments.empty() ? "" : ",") + prototype_json(prototype);
        list += (list.empty() ? "" : ",") + ("{\"name\":" + name_json(function.name));
        list += ",\"arguments\":[" + arguments + "]}";
    }
    return "[" + list + "]";
}

void add_list_command(CLI::App &app, int &exit_status)
{
    const auto wishes = std::make_shared<Wishes>();
    CLI::App *list = app.add_subcommand("list", description);
    list->formatter(std::make_shared<ListHelp>());
    list->footer(std::string(examples) + "\n" + exit_status_help());
    list->add_option("MODULE", wishes->module, "path of the module")->required()->type_name("");
    list->add_option("FUNCTION", wishes->function, "only this function")->type_name("");
    list->add_flag("--json", wishes->json, "shows one JSON object");
    list->callback([wishes, &exit_status] { exit_status = run_list(*wishes); });
}
