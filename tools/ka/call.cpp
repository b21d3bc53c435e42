// SPDX-License-Identifier: MIT
//
// See call.h.
#include "call.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <iostream>
#include <memory>

#include "arguments.h"
#include "exit_status.h"
#include "interruption.h"
#include "results.h"
#include "tables.h"

namespace {

struct Wishes {
    std::string module;
    std::string function;
    std::vector<std::string> arguments;
    std::string layout = "native";
    double deadline_s = 30;
    int32_t callback_answer = 0;
    int32_t segment_bytes = 1 << 20;
    int32_t scratch_bytes = 1 << 16;
};

constexpr const char *description = R"(Calls a function of a module and shows what comes back.

Arguments are written so:
  42 -5            INTEGER
  4.2 1e9          REAL, exact
  'text'           STRING; \' \\ \n \t \r \xHH stand for other characters
  [1,2] ['a','b']  array of one type; integers among REALs are REALs
  'text':20        a string with room for 20 characters; arrays of strings likewise
  str:20           an empty string with room for 20 characters
  &...             any of these by reference: what comes back is shown)";

constexpr const char *examples = R"(Examples:
  ka call ./adder add 2 40 '&0'
  ka call --layout 64 ./tour scale 2.5 '&[1,2.5,-4e2]'
  ka call ./tour greet "'world'" '&str:20'
)";

struct CallHelp : CLI::Formatter {
    std::string make_usage(const CLI::App *, std::string) const override
    {
        return "\nUsage: ka call [OPTIONS] MODULE FUNCTION [ARGUMENT...]\n";
    }
};

// A "--" may stand before what could be taken for an option.
std::vector<std::string> without_mark(std::vector<std::string> arguments)
{
    const auto mark = std::find(arguments.begin(), arguments.end(), "--");
    if (mark != arguments.end()) arguments.erase(mark);
    return arguments;
}

int32_t answer_callback(ka_host *, int32_t value, void *user)
{
    const int32_t answer = *static_cast<const int32_t *>(user);
    std::cerr << "ka: call-back " << value << ", answered " << answer << '\n';
    return answer;
}

ka_options options_of(Wishes &wishes)
{
    ka_options options;
    ka_options_init(&options, sizeof options);
    options.layout = wishes.layout == "64" ? KA_LAYOUT_64 : KA_LAYOUT_NATIVE;
    options.segment_bytes = wishes.segment_bytes;
    options.scratch_bytes = wishes.scratch_bytes;
    options.deadline_ms = static_cast<int32_t>(wishes.deadline_s * 1000);
    options.cancel_fd = interruption_descriptor();
    options.callback = answer_callback;
    options.user = &wishes.callback_answer;
    return options;
}

std::vector<Argument> read_arguments(const std::vector<std::string> &texts)
{
    std::vector<Argument> arguments;
    for (const std::string &text : texts) {
        try {
            arguments.push_back(read_argument(text));
        } catch (const Malformed &malformed) {
            throw Malformed("argument " + std::to_string(arguments.size() + 1) + " (" + text +
                            "): " + malformed.what());
        }
    }
    return arguments;
}

int show_results(ka_host *host, const Wishes &wishes, const std::vector<Argument> &arguments, int32_t code)
{
    const std::vector<std::string> names =
        argument_names(read_tables(wishes.module), wishes.function, arguments.size());
    for (size_t i = 0; i < arguments.size(); i++) {
        const auto number = static_cast<int32_t>(i + 1);
        if (ka_gives_back(host, number))
            std::cout << names[i] << " = " << show_result(host, number, arguments[i]) << '\n';
    }
    std::cout << "return code " << code << std::endl;
    if (!std::cout) return complain(EXIT_USAGE, "the results could not be written");
    const std::string refusal = meaning_of_refusal(code);
    if (!refusal.empty()) complain(EXIT_NONZERO, "a host answers " + std::to_string(code) + " when " + refusal);
    return code == 0 ? EXIT_DONE : EXIT_NONZERO;
}

std::string remedied_text(const ka_error *error)
{
    const std::string text = error->text;
    return error->error_class == KA_TOO_BIG ? text + " (--segment)" : text;
}

int make_call(ka_host *host, const Wishes &wishes, const std::vector<Argument> &arguments)
{
    int32_t code = 0;
    ka_begin(host, wishes.function.c_str());
    for (const Argument &argument : arguments)
        add_argument(host, argument);
    const int32_t error_class = ka_call(host, &code);
    if (error_class != KA_DONE) return complain(exit_status_of(error_class), remedied_text(ka_last_error(host)));
    return show_results(host, wishes, arguments, code);
}

int run_call(Wishes &wishes)
{
    std::vector<Argument> arguments;
    try {
        arguments = read_arguments(wishes.arguments);
    } catch (const Malformed &malformed) {
        return complain(EXIT_USAGE, malformed.what());
    }
    const ka_options options = options_of(wishes);
    ka_host *host = nullptr;
    const int32_t error_class = ka_open(&host, wishes.module.c_str(), &options);
    const int status = error_class == KA_DONE ? make_call(host, wishes, arguments)
                                              : complain(exit_status_of(error_class), ka_last_error(host)->text);
    ka_close(host);
    return status;
}

} // namespace

void add_call_command(CLI::App &app, int &exit_status)
{
    const auto wishes = std::make_shared<Wishes>();
    CLI::App *call = app.add_subcommand("call", description);
    call->formatter(std::make_shared<CallHelp>());
    // Arguments are taken as they stand: to the command-line library, brackets and minus signs have meanings of their
    // own.
    call->allow_extras();
    call->footer(std::string(examples) + "\n" + exit_status_help());
    call->add_option("MODULE", wishes->module, "path of the module")->required()->type_name("");
    call->add_option("FUNCTION", wishes->function, "name of the function")->required()->type_name("");
    call->add_option("--layout", wishes->layout, "layout of the shared block")
        ->check(CLI::IsMember({"native", "64"}))
        ->capture_default_str()
        ->type_name("LAYOUT");
    call->add_option("--deadline", wishes->deadline_s, "seconds to wait for the answer")
        ->check(CLI::Range(0.001, 2000000.0).description(""))
        ->capture_default_str()
        ->type_name("SECONDS");
    call->add_option("--callback", wishes->callback_answer, "answer to every call-back")
        ->capture_default_str()
        ->type_name("N");
    call->add_option("--segment", wishes->segment_bytes, "size of the shared segment")
        ->capture_default_str()
        ->type_name("BYTES");
    call->add_option("--scratch", wishes->scratch_bytes, "size of the scratch area at its end")
        ->capture_default_str()
        ->type_name("BYTES");
    call->callback([wishes, call, &exit_status] {
        wishes->arguments = without_mark(call->remaining());
        exit_status = run_call(*wishes);
    });
}
