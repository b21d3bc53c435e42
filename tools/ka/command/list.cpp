// SPDX-License-Identifier: MIT
//
// ka list: the functions of a module.
#include "commands.h"

#include <memory>

#include "base/exit_status.h"
#include "base/interruption.h"
#include "base/json.h"
#include "base/output.h"
#include "call/failure.h"
#include "cli/subcommand.h"
#include "elf/machine.h"
#include "module/find.h"
#include "module/listing.h"
#include "module/signatures.h"

namespace {

struct Options {
    std::string module;
    std::string function;
    bool start = false;
    bool is_long = false;
    bool json = false;

    Form form() const { return json ? Form::json : Form::text; }
};

constexpr const char *description = R"(Lists the functions of a module, with the names and kinds of their arguments.

TAKES says which types an argument may have, and whether it comes back. Every argument may be passed by value or by
reference. By value the function gets the same, and what it changes is lost; by reference it comes back changed where
TAKES says so. ka call passes by reference what can come back; a program chooses.

--long also says, for each argument, what comes of passing it by value, and shows what the module's author has written
about the functions and their arguments (ka::doc of ka/module.hpp); --json has both.

The module's file is read, not run. A module that fills its tables when it starts can be listed with --start. --json
also tells the module's word size, as bits: 64 or 32.)";

constexpr const char *examples = R"(Examples:
  ka list ./adder
  ka list ./tour scale
  ka list --long ./tour
  ka list --json ./tour
)";

// ---- The command -----------------------------------------------------------------------------------------------

int show(const Options &options, const std::vector<Function> &functions)
{
    const JsonObject json = JsonObject()
                                .add("module", options.module)
                                .add("bits", word_size_of(options.module))
                                .add("functions", functions_json(functions));
    const Length length = options.is_long ? Length::full : Length::usual;
    return write_results(options.json ? json.text() + "\n" : functions_text(functions, length), EXIT_DONE);
}

int show_wanted(const Options &options, const std::vector<Function> &functions)
{
    if (options.function.empty()) return show(options, functions);
    try {
        return show(options, {find_function(functions, options.function)});
    } catch (const Refused &refused) {
        return report_failure(KA_REFUSED, refused.what(), options.form());
    }
}

int list_file(const Options &options)
{
    const Tables tables = read_tables(options.module);
    if (tables.are_whole()) return show_wanted(options, tables.functions);
    const std::string why =
        tables.filled_at_start ? "the module fills its tables as it starts; --start reads them then" : tables.fault;
    return report_failure(KA_START, options.module + ": " + why, options.form());
}

int list_host(const Options &options)
{
    ka_options settings;
    ka_options_init(&settings, sizeof settings);
    settings.cancel_fd = open_interruption_fd();
    ka_host *host = nullptr;
    const ka_tables *tables = nullptr;
    if (ka_open(&host, options.module.c_str(), &settings) == KA_DONE) tables = ka_host_tables(host);
    const ka_error *error = ka_last_error(host);
    const int status = tables != nullptr ? show_wanted(options, functions_of(*tables))
                                         : report_failure(error->error_class, error->message, options.form());
    ka_close(host);
    return status;
}

} // namespace

void add_list_command(CLI::App &app, int &exit_status)
{
    const auto options = std::make_shared<Options>();
    CLI::App *list = add_subcommand(app, {"list", description, examples, "[OPTIONS] MODULE [FUNCTION]"});
    add_option(list,
               {.name = "MODULE",
                .text = "path of the module, or its name in the current folder or in KA_PATH",
                .is_required = true},
               options->module);
    add_option(list, {.name = "FUNCTION", .text = "only this function"}, options->function);
    add_flag(list, "--start", options->start, "starts the module, and reads the tables that it has then");
    add_flag(list, "--long", options->is_long, "shows also what passing by value does, and the author's texts");
    add_flag(list, "--json", options->json, "shows one JSON object");
    when_chosen(list, exit_status, [options] {
        const std::string fault = find_module(options->module);
        if (!fault.empty()) return report_failure(KA_START, options->module + ": " + fault, options->form());
        return options->start ? list_host(*options) : list_file(*options);
    });
}
