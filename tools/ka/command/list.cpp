// SPDX-License-Identifier: MIT
//
// ka list: the functions of a module.
#include "commands.h"

#include <iostream>
#include <memory>

#include "base/exit_status.h"
#include "base/interruption.h"
#include "base/json.h"
#include "call/failure.h"
#include "cli/subcommand.h"
#include "module/listing.h"
#include "module/signatures.h"

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

// ---- The command -----------------------------------------------------------------------------------------------

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
    if (tables.are_whole()) return show_wanted(wishes, tables.functions);
    const std::string why =
        tables.filled_at_start ? "the module fills its tables as it starts; --start reads them then" : tables.fault;
    return tell_failure(KA_START, wishes.module + ": " + why, wishes.form());
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
