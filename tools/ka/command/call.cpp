// SPDX-License-Identifier: MIT
//
// ka call: one call of one function of a module. Arguments are prepared, a host is started, called and ended;
// results, times and errors are shown.
#include "commands.h"

#include <algorithm>
#include <iostream>
#include <memory>
#include <poll.h>

#include "base/exit_status.h"
#include "base/interruption.h"
#include "base/terminal.h"
#include "base/words.h"
#include "call/backtrace.h"
#include "call/failure.h"
#include "call/one_call.h"
#include "call/request.h"
#include "call/timing.h"
#include "cli/host_options.h"
#include "cli/mistakes.h"
#include "cli/option_tree.h"
#include "cli/subcommand.h"
#include "values/results.h"

namespace {

// Words of the command line may still have their marks (base/words.h).
struct CallWishes : Request, HostWishes {
    std::string module;
    size_t repeat = 0; // 0: one call, without timing
    bool json = false;
    std::vector<std::string> option_names; // for the one that a misspelt word was meant to be
};

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

constexpr int32_t usual_segment_bytes = 1 << 20;

// ---- The host --------------------------------------------------------------------------------------------------

ka_options options_of(CallWishes &wishes)
{
    ka_options options = host_options(wishes, usual_segment_bytes, interruption_descriptor());
    if (wishes.repeat == 0) options.inspector = backtrace_inspector(); // which costs time in every call
    return options;
}

// Makes the segment big enough, unless its size was asked for; true when it was too small.
bool make_room(ka_options &options, const CallWishes &wishes, const Invocation &invocation)
{
    const int64_t needed = segment_bytes_for(invocation.function, invocation.arguments, wishes.scratch_bytes);
    if (wishes.segment_bytes != 0 || needed <= options.segment_bytes) return false;
    options.segment_bytes = static_cast<int32_t>(std::min<int64_t>(needed, INT32_MAX));
    return true;
}

// ---- What is shown ---------------------------------------------------------------------------------------------

int show(const std::string &text, int status)
{
    std::cout << text << std::flush;
    return std::cout ? status : complain(EXIT_USAGE, "the results could not be written");
}

int show_error(ka_host *host, const CallWishes &wishes)
{
    const ka_error &error = *ka_last_error(host);
    const bool can_help = error.error_class == KA_TOO_BIG && wishes.segment_bytes != 0;
    const int status = exit_status_of(error.error_class);
    complain_lines(static_cast<ExitStatus>(status), failure_text(host) + (can_help ? " (--segment)" : ""));
    return wishes.json ? show(failure_json(host, wishes.function) + "\n", status) : status;
}

// Before there is a host.
int show_unmade_call(const CallWishes &wishes, int32_t error_class, const char *text)
{
    const int status = complain(exit_status_of(error_class), text);
    return wishes.json ? show(unmade_call_json(wishes.function, error_class, text) + "\n", status) : status;
}

int show_outcome(const CallWishes &wishes, const CallOutcome &outcome, const Timing &timing)
{
    const bool timed = wishes.repeat > 0;
    const int status = timing.nonzero_calls() == 0 ? EXIT_DONE : EXIT_NONZERO;
    const std::string refusal = wishes.raw ? meaning_of_refusal(outcome.code) : "";
    if (!refusal.empty())
        complain(EXIT_NONZERO, "a host answers " + std::to_string(outcome.code) + " when " + refusal);
    if (!wishes.json) return show(outcome_text(outcome) + (timed ? timing.text() : ""), status);
    return show("{" + outcome_members(wishes.function, outcome) + (timed ? "," + timing.members() : "") + "}\n",
                status);
}

// ---- The call --------------------------------------------------------------------------------------------------

bool is_interrupted(int fd)
{
    pollfd readable{fd, POLLIN, 0};
    return fd != -1 && poll(&readable, 1, 0) == 1;
}

struct Calls {
    CallOutcome last{};
    Timing timing; // of those that were answered
    bool interrupted = false;
};

// Every call begins with the arguments as they were given.
Calls make_calls(ka_host *host, const CallWishes &wishes, const Invocation &invocation, int cancel_fd)
{
    const size_t wanted = std::max<size_t>(wishes.repeat, 1);
    Calls calls;
    Progress progress("calling " + wishes.function, static_cast<int64_t>(wishes.repeat));
    while (calls.timing.calls() < wanted && !calls.interrupted) {
        calls.last = invoke(host, invocation);
        if (calls.last.error_class != KA_DONE) break;
        calls.timing.add(calls.last.milliseconds, calls.last.code);
        progress.advance();
        calls.interrupted = calls.timing.calls() < wanted && is_interrupted(cancel_fd);
    }
    return calls;
}

int call_and_show(ka_host *host, const CallWishes &wishes, const Invocation &invocation, int cancel_fd)
{
    const Calls calls = make_calls(host, wishes, invocation, cancel_fd);
    const std::string after = "after " + std::to_string(calls.timing.calls()) + " calls";
    if (calls.last.error_class != KA_DONE) {
        if (wishes.repeat > 0) complain(EXIT_NONZERO, after + ":");
        return show_error(host, wishes);
    }
    const int status = show_outcome(wishes, calls.last, calls.timing);
    return calls.interrupted ? complain(EXIT_INTERRUPTED, "interrupted " + after) : status;
}

// A host that is closed at the end.
class Host {
public:
    Host() = default;
    ~Host() { ka_close(host_); }
    Host(const Host &) = delete;
    Host &operator=(const Host &) = delete;

    int32_t open(const CallWishes &wishes, const ka_options &options)
    {
        ka_close(host_);
        return ka_open(&host_, wishes.module.c_str(), &options);
    }
    ka_host *get() const { return host_; }

private:
    ka_host *host_ = nullptr;
};

int run_prepared(CallWishes &wishes, const Invocation &invocation)
{
    Host host;
    ka_options options = options_of(wishes);
    make_room(options, wishes, invocation);
    if (host.open(wishes, options) != KA_DONE) return show_error(host.get(), wishes);
    return call_and_show(host.get(), wishes, invocation, options.cancel_fd);
}

// The module's file does not tell what its functions take, so the host is asked. A host with too small a segment is
// started again before anything is called.
int run_unprepared(CallWishes &wishes)
{
    Host host;
    ka_options options = options_of(wishes);
    const ka_tables *tables = nullptr;
    if (host.open(wishes, options) == KA_DONE) tables = ka_host_tables(host.get());
    if (tables == nullptr) return show_error(host.get(), wishes);
    const Invocation invocation = prepare(wishes, functions_of(*tables));
    if (make_room(options, wishes, invocation) && host.open(wishes, options) != KA_DONE)
        return show_error(host.get(), wishes);
    return call_and_show(host.get(), wishes, invocation, options.cancel_fd);
}

int run_host(CallWishes &wishes)
{
    const Tables tables = read_tables(wishes.module);
    if (wishes.raw) return run_prepared(wishes, prepare_raw(wishes, tables.functions));
    if (tables.are_whole()) return run_prepared(wishes, prepare(wishes, tables.functions));
    return run_unprepared(wishes);
}

// The option that a word was meant to be: an argument that begins like one stands behind "--". Throws Malformed.
void unmark_words(CallWishes &wishes)
{
    take_mark(wishes.module);
    take_mark(wishes.function);
    for (std::string &word : wishes.arguments) {
        const bool is_marked = take_mark(word);
        const bool is_number = word.find_first_of("0123456789.") == 1;
        if (!is_marked && word.size() > 1 && word[0] == '-' && !is_number)
            throw Malformed(unknown_option(word, wishes.option_names) +
                            "; an argument that begins like one stands behind --");
    }
}

void check_wishes(const CallWishes &wishes)
{
    check_callback_rule("--callback", wishes.callback);
    if (!wishes.arguments_file.empty() && !wishes.arguments.empty())
        throw Malformed("arguments are given twice: with --args, and behind the function");
}

int run_call(CallWishes &wishes)
{
    try {
        unmark_words(wishes);
        check_wishes(wishes);
        return run_host(wishes);
    } catch (const Malformed &malformed) {
        return show_unmade_call(wishes, KA_ARGUMENT, malformed.what());
    } catch (const Refused &refused) {
        return show_unmade_call(wishes, KA_REFUSED, refused.what());
    }
}

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
