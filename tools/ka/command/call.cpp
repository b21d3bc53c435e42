// SPDX-License-Identifier: MIT
//
// ka call: one call of one function of a module. Arguments are prepared, a host is started, called and ended;
// results, times and errors are shown.
#include "commands.h"

#include <algorithm>
#include <memory>
#include <poll.h>

#include "base/exit_status.h"
#include "base/interruption.h"
#include "base/output.h"
#include "base/terminal.h"
#include "call/failure.h"
#include "call/one_call.h"
#include "call/request.h"
#include "call/segment_size.h"
#include "call/timing.h"
#include "cli/call_words.h"
#include "cli/host_options.h"
#include "cli/option_tree.h"
#include "cli/subcommand.h"
#include "module/find.h"
#include "values/results.h"

namespace {

// Words of the command line may still have their marks (base/words.h).
struct CallOptions : Request, HostOptions {
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
  -- -x            after --, words that begin like an option are arguments
Strings come back in this form, and can be given again: in ka shell as they are printed, on a shell's command line
within its quotes ("'caf\xe9'"). \xHH is shown for each byte that is not UTF-8, for control characters, and for those
that end a line or turn the writing direction (U+2028 to U+202E, U+2066 to U+2069).
What the function can change goes by reference, and is shown when it comes back; a string then has room for 256
characters unless more or other room is given. A VarArg takes the type that is written: 42 is an INTEGER, 4.2 and 42.0
are REALs, 'text' is a STRING, and &... goes by reference.

--raw sends the arguments as written, as a VarArg gets them; nothing is checked. --args takes a JSON array:
  42 4.2 "text" [1,2]                 as above; numbers keep all their decimals
  {"string":"text","room":20}         with room; "by_reference":true is allowed in every object
  {"integer":3} {"real":"1.5"} {"hex":"00ff"}

A return code other than 0 is shown with its reason where the function has written one on standard error, as "ka:
FUNCTION: TEXT" (not with --under).

When the module dies, does not answer in time or is interrupted (ctrl-C), standard error shows the function, its
arguments, how the module ended, and a backtrace (not with --repeat).

Results go to standard output, everything else to standard error. With --json standard output gets one object, of an
error too. A call: "function", "return_code", "results" by name, "milliseconds" (a string that is not UTF-8 is
{"hex":"636166e9"}, as --args takes it), "reason" of a return code; with --repeat "calls",
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

ka_options settings_of(CallOptions &options)
{
    ka_options settings = host_options(options, usual_segment_bytes, open_interruption_fd());
    if (options.repeat > 0) settings.inspector = nullptr;            // which costs time in every call
    if (settings.under == nullptr) options.errors.collect(settings); // a command may need the terminal
    return settings;
}

// ---- What is shown ---------------------------------------------------------------------------------------------

int show_error(ka_host *host, const CallOptions &options)
{
    options.errors.flush();
    const ka_error &error = *ka_last_error(host);
    const bool can_help = error.error_class == KA_TOO_BIG && options.segment_bytes != 0;
    const int status = exit_status_of(error.error_class);
    report_error_lines(static_cast<ExitStatus>(status), failure_text(host) + (can_help ? " (--segment)" : ""));
    return options.json ? write_results(failure_json(host, options.function) + "\n", status) : status;
}

// Before there is a host.
int show_refused_call(const CallOptions &options, int32_t error_class, const std::string &text)
{
    const int status = report_error(exit_status_of(error_class), text);
    return options.json ? write_results(refused_call_json(options.function, error_class, text) + "\n", status)
                        : status;
}

int show_outcome(const CallOptions &options, const CallOutcome &outcome, const Timing &timing)
{
    const bool timed = options.repeat > 0;
    const int status = timing.nonzero_calls() == 0 ? EXIT_DONE : EXIT_NONZERO;
    const std::string refusal = options.raw ? meaning_of_refusal(outcome.return_code) : "";
    if (!refusal.empty())
        report_error(EXIT_NONZERO, "a host answers " + std::to_string(outcome.return_code) + " when " + refusal);
    if (!options.json) return write_results(outcome_text(outcome) + (timed ? timing.text() : ""), status);
    JsonObject json = outcome_json(options.function, outcome);
    if (timed) timing.add_to(json);
    return write_results(json.text() + "\n", status);
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
Calls make_calls(ka_host *host, const CallOptions &options, const Invocation &invocation, int cancel_fd)
{
    const size_t wanted = std::max<size_t>(options.repeat, 1);
    Calls calls;
    Progress progress("calling " + options.function, static_cast<int64_t>(options.repeat));
    while (calls.timing.calls() < wanted && !calls.interrupted) {
        calls.last = invoke(host, invocation, options.errors);
        if (calls.last.error_class != KA_DONE) break;
        calls.timing.add(calls.last.milliseconds, calls.last.return_code);
        progress.advance();
        calls.interrupted = calls.timing.calls() < wanted && is_interrupted(cancel_fd);
    }
    return calls;
}

int call_and_show(ka_host *host, const CallOptions &options, const Invocation &invocation, int cancel_fd)
{
    const Calls calls = make_calls(host, options, invocation, cancel_fd);
    const std::string after = "after " + std::to_string(calls.timing.calls()) + " calls";
    if (calls.last.error_class != KA_DONE) {
        if (options.repeat > 0) report_error(EXIT_NONZERO, after + ":");
        return show_error(host, options);
    }
    const int status = show_outcome(options, calls.last, calls.timing);
    return calls.interrupted ? report_error(EXIT_INTERRUPTED, "interrupted " + after) : status;
}

// A host that is closed at the end, with all that it has written.
class Host {
public:
    explicit Host(const ErrorOutput &errors) : errors_(errors) {}
    ~Host()
    {
        ka_close(host_);
        errors_.flush();
    }
    Host(const Host &) = delete;
    Host &operator=(const Host &) = delete;

    int32_t open(const CallOptions &options, const ka_options &settings)
    {
        ka_close(host_);
        return ka_open(&host_, options.module.c_str(), &settings);
    }
    ka_host *get() const { return host_; }

private:
    const ErrorOutput &errors_;
    ka_host *host_ = nullptr;
};

int run_prepared(CallOptions &options, const Invocation &invocation)
{
    Host host(options.errors);
    ka_options settings = settings_of(options);
    if (options.segment_bytes == 0) make_room(settings, invocation);
    if (host.open(options, settings) != KA_DONE) return show_error(host.get(), options);
    return call_and_show(host.get(), options, invocation, settings.cancel_fd);
}

// The module's file does not say what its functions take, so the host is asked. A host with too small a segment is
// started again before anything is called.
int run_unprepared(CallOptions &options)
{
    Host host(options.errors);
    ka_options settings = settings_of(options);
    const ka_tables *tables = nullptr;
    if (host.open(options, settings) == KA_DONE) tables = ka_host_tables(host.get());
    if (tables == nullptr) return show_error(host.get(), options);
    const Invocation invocation = prepare(options, functions_of(*tables));
    const bool too_small = options.segment_bytes == 0 && make_room(settings, invocation);
    if (too_small && host.open(options, settings) != KA_DONE) return show_error(host.get(), options);
    return call_and_show(host.get(), options, invocation, settings.cancel_fd);
}

int run_host(CallOptions &options)
{
    const Tables tables = read_tables(options.module);
    if (options.raw) return run_prepared(options, prepare_raw(options, tables.functions));
    if (tables.are_whole()) return run_prepared(options, prepare(options, tables.functions));
    return run_unprepared(options);
}

void check_options(const CallOptions &options)
{
    check_callback_rule("--callback", options.callback);
    if (!options.arguments_file.empty() && !options.arguments.empty())
        throw Malformed("arguments are given twice: with --args, and after the function");
}

int run_call(CallOptions &options)
{
    try {
        unmark_words(options.module, options, options.option_names);
        check_options(options);
        const std::string fault = find_module(options.module);
        if (!fault.empty()) return show_refused_call(options, KA_START, options.module + ": " + fault);
        return run_host(options);
    } catch (const Malformed &malformed) {
        return show_refused_call(options, KA_ARGUMENT, malformed.what());
    } catch (const Refused &refused) {
        return show_refused_call(options, KA_REFUSED, refused.what());
    }
}

void add_call_options(CLI::App *call, CallOptions &options)
{
    add_flag(call, "--json", options.json, "shows one JSON object");
    add_option(call,
               {.name = "--args", .value = "FILE", .text = "reads the arguments from a JSON file; -: standard input"},
               options.arguments_file);
    add_option(call,
               {.name = "--repeat",
                .value = "N",
                .text = "calls N times on one host, and shows the times",
                .range = Range{1, 10000000}},
               options.repeat);
    add_host_options(call, options, "as big as the call needs");
}

} // namespace

void add_call_command(CLI::App &app, int &exit_status)
{
    const auto options = std::make_shared<CallOptions>();
    CLI::App *call = add_subcommand(app, {"call", description, examples, "[OPTIONS] MODULE FUNCTION [ARGUMENT...]"});
    // Arguments are taken as they are: to the command-line library, brackets and minus signs have meanings of their
    // own.
    take_extra_words(call);
    add_option(call,
               {.name = "MODULE",
                .text = "path of the module, or its name in the current folder or in KA_PATH",
                .is_required = true},
               options->module);
    add_option(call, {.name = "FUNCTION", .text = "name of the function", .is_required = true}, options->function);
    add_call_options(call, *options);
    when_chosen(call, exit_status, [options, call] {
        options->arguments = extra_words(call);
        options->option_names = option_names(call);
        return run_call(*options);
    });
}
