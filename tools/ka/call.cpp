// SPDX-License-Identifier: MIT
//
// See call.h. How a call is made stands in calling.cpp.
#include "call.h"

#include <memory>

#include "calling.h"
#include "exit_status.h"
#include "subcommand.h"

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
Strings come back in this form, and can be given again: in ka shell as they are printed, on a shell's command line
within its quotes ("'caf\xe9'"). \xHH is shown for each byte that is not UTF-8, for control characters, and for those
that end a line or turn the writing direction (U+2028 to U+202E, U+2066 to U+2069).
What the function can change goes by reference, and is shown when it comes back; a string then has room for 256
characters unless more or other room is given. A VarArg takes the type that is written: 42 is an INTEGER, 4.2 and 42.0
are REALs, 'text' is a STRING, and &... goes by reference.

--raw sends the arguments as written, as a VarArg gets them; nothing is checked. --args takes a JSON array:
  42 4.2 "text" [1,2]                 as above; numbers keep all their decimals
  {"string":"text","room":20}         with room; "by_reference":true may stand in every object
  {"integer":3} {"real":"1.5"} {"hex":"00ff"}

When the module dies, does not answer in time or is interrupted (ctrl-C), standard error tells the function, its
arguments, how the module ended, and where it stood (not with --repeat).

Results go to standard output, everything else to standard error. With --json standard output gets one object, of an
error too. A call: "function", "return_code", "results" by name, "milliseconds" (a string that is not UTF-8 is
{"hex":"636166e9"}, as --args takes it); with --repeat "calls",
"nonzero_calls", "calls_per_second", "min_ms", "median_ms", "p99_ms", "max_ms". An error: "error", "message",
"retry", "function", and whatever else is known.)";

constexpr const char *examples = R"(Examples:
  ka call ./adder add 2 40 0
  ka call --layout 64 ./tour scale 2.5 '[1,2.5,-4e2]' 0
  ka call ./tour greet world str:20
  ka call --callback 'value * 2' ./tour ask 21 0 0
  ka call --repeat 1000 ./adder add 2 40 0
  echo '[2, 40, 0]' | ka call --json --args - ./adder add
  ka call --raw ./adder add 2 40 '&0'
)";

void add_call_options(CLI::App *call, CallWishes &wishes)
{
    add_flag(call, "--json", wishes.json, "shows one JSON object");
    add_option(call,
               {.name = "--args", .value = "FILE", .text = "reads the arguments from a JSON file; -: standard input"},
               wishes.arguments_file);
    add_option(call,
               {.name = "--repeat",
                .value = "N",
                .text = "calls N times on one host, and tells the times",
                .range = Range{1, 10000000}},
               wishes.repeat);
    add_host_options(call, wishes, "as big as the call needs");
}

} // namespace

void add_call_command(CLI::App &app, int &exit_status)
{
    const auto wishes = std::make_shared<CallWishes>();
    CLI::App *call = add_subcommand(app, {"call", description, examples, "[OPTIONS] MODULE FUNCTION [ARGUMENT...]"});
    // Arguments are taken as they stand: to the command-line library, brackets and minus signs have meanings of their
    // own.
    take_extra_words(call);
    add_option(call, {.name = "MODULE", .text = "path of the module", .is_required = true}, wishes->module);
    add_option(call, {.name = "FUNCTION", .text = "name of the function", .is_required = true}, wishes->function);
    add_call_options(call, *wishes);
    when_chosen(call, exit_status, [wishes, call] {
        wishes->arguments = extra_words(call);
        wishes->option_names = option_names(call);
        return run_call(*wishes);
    });
}
