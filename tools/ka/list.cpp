// SPDX-License-Identifier: MIT
//
// See list.h.
#include "list.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <memory>
#include <set>
#include <unistd.h>

#include "exit_status.h"
#include "failure.h"
#include "interruption.h"
#include "ka/dll_block.h"
#include "printable.h"
#include "prototypes.h"
#include "results.h"
#include "subcommand.h"
#include "terminal.h"

namespace {

struct Wishes {
    std::string module;
    std::string function;
    bool start = false;
    bool json = false;

    Form form() const { return json ? Form::json : Form::text; }
};

constexpr const char *description = R"(Lists the functions of a module, with the names and kinds of their arguments.

TAKES says which types an argument may have, and whether it comes back. Every argument may be passed by value or by
reference. By value the function gets the same, and what it changes is lost; by reference it comes back changed where
TAKES says so. ka call passes by reference what can come back; a program chooses.

The module's file is read, not run. A module that fills its tables when it starts can be listed with --start.)";

constexpr const char *examples = R"(Examples:
  ka list ./adder
  ka list ./tour scale
  ka list --json ./tour
)";

// ---- As a table ------------------------------------------------------------------------------------------------

constexpr size_t columns = 5;
using Row = std::array<std::string, columns>;

std::string least_text(const Prototype &prototype)
{
    const int64_t least = least_elements(prototype);
    return least > 0 ? std::to_string(least) : "";
}

std::string takes_text(const Function &function, const Prototype &prototype)
{
    const auto position = static_cast<size_t>(&prototype - function.prototypes.data());
    if (position >= used_prototypes(function)) return "nothing: it stands behind a VarArg";
    if (!is_kind(prototype.type)) return "nothing: there is no such kind";
    return types_taken_by(prototype) +
           (changes(prototype.type) ? "; comes back if by reference" : "; never comes back");
}

std::vector<Row> rows_of(const Function &function, bool is_hidden)
{
    std::vector<Row> rows;
    for (const Prototype &prototype : function.prototypes) {
        const std::string takes = takes_text(function, prototype);
        const std::string name = prototype.name.empty() ? "(unnamed)" : printable(prototype.name);
        rows.push_back({"", name, kind_name(prototype.type), takes, least_text(prototype)});
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

// A remark, which has no kind, is not counted.
std::array<size_t, columns> widths_of(const std::vector<Row> &rows)
{
    std::array<size_t, columns> widths{};
    for (const Row &row : rows)
        for (size_t i = 0; i < columns; i++)
            if (!row[2].empty()) widths[i] = std::max(widths[i], width_of(row[i]));
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

std::string prototype_json(const Function &function, const Prototype &prototype)
{
    const std::string least = least_text(prototype);
    return "{\"name\":" + name_json(prototype.name) + ",\"kind\":" + name_json(kind_name(prototype.type)) +
           ",\"takes\":" + name_json(takes_text(function, prototype)) +
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

int show_wanted(const Wishes &wishes, const std::vector<Function> &functions)
{
    if (wishes.function.empty()) return show(wishes, functions);
    try {
        return show(wishes, {find_function(functions, wishes.function)});
    } catch (const Refused &refused) {
        return tell_failure(KA_REFUSED, refused.what(), wishes.form());
    }
}

int list_file(const Wishes &wishes)
{
    const Tables tables = read_tables(wishes.module);
    if (tables.missing.empty()) return show_wanted(wishes, tables.functions);
    const std::string remedy = tables.missing.ends_with("starts") ? "; --start reads it then" : "";
    return tell_failure(KA_START, wishes.module + ": " + tables.missing + remedy, wishes.form());
}

int list_host(const Wishes &wishes)
{
    ka_options options;
    ka_options_init(&options, sizeof options);
    options.cancel_fd = interruption_descriptor();
    ka_host *host = nullptr;
    const ka_tables *tables = nullptr;
    if (ka_open(&host, wishes.module.c_str(), &options) == KA_DONE) tables = ka_host_tables(host);
    const ka_error *error = ka_last_error(host);
    const int status = tables != nullptr ? show_wanted(wishes, functions_of(*tables))
                                         : tell_failure(error->error_class, error->message, wishes.form());
    ka_close(host);
    return status;
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
            arguments += (arguments.empty() ? "" : ",") + prototype_json(function, prototype);
        list += (list.empty() ? "" : ",") + ("{\"name\":" + name_json(function.name));
        list += ",\"arguments\":[" + arguments + "]}";
    }
    return "[" + list + "]";
}

void add_list_command(CLI::App &app, int &exit_status)
{
    const auto wishes = std::make_shared<Wishes>();
    CLI::App *list = add_subcommand(app, {"list", description, examples, "[OPTIONS] MODULE [FUNCTION]"});
    add_option(list, {.name = "MODULE", .text = "path of the module", .is_required = true}, wishes->module);
    add_option(list, {.name = "FUNCTION", .text = "only this function"}, wishes->function);
    add_flag(list, "--start", wishes->start, "starts the module, and reads the tables that it has then");
    add_flag(list, "--json", wishes->json, "shows one JSON object");
    when_chosen(list, exit_status, [wishes] { return wishes->start ? list_host(*wishes) : list_file(*wishes); });
}
