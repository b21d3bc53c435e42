// SPDX-License-Identifier: MIT
//
// See call.h. How a call is made stands in calling.cpp.
#include "call.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <memory>

#include "calling.h"
#include "exit_status.h"

namespace {

constexpr const char *description = R"(Calls a function of a module and shows what comes back.

The function's prototypes decide what an argument is (ka list shows them):
  42 -5 4.2 1e9    a number: INTEGER or REAL, as the function takes it; a REAL is exact
  text             a string; in quotes when it begins with ' & [ or str:
  'text'           the same; \' \\ \n \t \r \xHH stand for other characters
  [1,2] [a,'b c']  an array
  'text':20        a string with room for 20 characters; arrays of strings likewise
  str:20           an empty string with room for 20 characters
  -- -x            what begins like an option stands behind --
What the function can change goes by reference, and is shown when it comes back; a string then has room for 256
characters unless more or other room is given. A VarArg takes the type that is written: 42 is an INTEGER, 4.2 and 42.0
are REALs, 'text' is a STRING, and &... goes by reference.

--raw sends the arguments as written, as a VarArg gets them; nothing is checked. --args takes a JSON array:
  42 4.2 "text" [1,2]                 as above; numbers keep all their decimals
  {"string":"text","room":20}         with room; "by_reference":true may stand in every object
  {"integer":3} {"real":"1.5"} {"hex":"00ff"}

When the module dies or does not answer in time, standard error tells the function, its arguments, how the module
ended, and where it stood (not with --repeat).

Results go to standard output, everything else to standard error. With --json standard output gets one object, of an
error too. A call: "function", "return_code", "results" by name, "milliseconds"; with --repeat "calls",
"nonzero_calls", "calls_per_second", "min_ms", "median_ms", "p99_ms", "max_ms". An error: "error", "text", "retry",
"function", and whatever else is known.)";

constexpr const char *examples = R"(Examples:
  ka call ./adder add 2 40 0
  ka call --layout 64 ./tour scale 2.5 '[1,2.5,-4e2]' 0
  ka call ./tour greet world str:20
  ka call --callback 'value * 2' ./tour ask 21 0 0
  ka call --repeat 1000 ./adder add 2 40 0
  echo '[2, 40, 0]' | ka call --json --args - ./adder add
  ka call --raw ./adder add 2 40 '&0'
)";

struct CallHelp : CLI::Formatter {
    std::string make_usage(const CLI::App *, std::string) const override
    {
        return "\nUsage: ka call [OPTIONS] MODULE FUNCTION [ARGUMENT...]\n";
    }
};

void add_call_options(CLI::App *call, CallWishes &wishes)
{
    call->add_flag("--json", wishes.json, "shows one JSON object");
    call->add_option("--args", wishes.arguments_file, "reads the arguments from a JSON file; -: standard input")
        ->type_name("FILE");
    call->add_option("--repeat", wishes.repeat, "calls N times on one host, and tells the times")
        ->check(CLI::Range(1, 10000000).description(""))
        ->type_name("N");
    add_host_options(call, wishes, "as big as the call needs");
}

} // namespace

void add_call_command(CLI::App &app, int &exit_status)
{
    const auto wishes = std::make_shared<CallWishes>();
    CLI::App *call = app.add_subcommand("call", description);
    call->formatter(std::make_shared<CallHelp>());
    // Arguments are taken as they stand: to the command-line library, brackets and minus signs have meanings of their
    // own.
    call->allow_extras();
    call->footer(std::string(examples) + "\n" + exit_status_help());
    call->add_option("MODULE", wishes->module, "path of the module")->required()->type_name("");
    call->add_option("FUNCTION", wishes->function, "name of the function")->required()->type_name("");
    add_call_options(call, *wishes);
    call->callback([wishes, call, &exit_status] {
        wishes->arguments = call->remaining();
        exit_status = run_call(*wishes);
    });
}
