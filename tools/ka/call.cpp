// SPDX-License-Identifier: MIT
//
// See call.h.
#include "call.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <poll.h>

#include "callback.h"
#include "command_words.h"
#include "exit_status.h"
#include "interruption.h"
#include "invocation.h"
#include "json_arguments.h"
#include "repeat.h"
#include "results.h"
#include "terminal.h"

namespace {

struct Wishes {
    std::string module;
    std::string function;
    std::vector<std::string> arguments;
    std::string arguments_file;
    std::string layout = "native";
    double deadline_s = 30;
    std::string callback = "const:0";
    int32_t segment_bytes = 0; // 0: as many as the call needs
    int32_t scratch_bytes = 1 << 16;
    int32_t trace_level = 0;
    size_t repeat = 0; // 0: one call, without timing
    bool raw = false;
    bool json = false;
};

constexpr int32_t usual_segment_bytes = 1 << 20;

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

Results go to standard output, everything else to standard error. With --json standard output gets one object:
"function", "return_code", "results" by name, "milliseconds"; or "function" and "error" with class, text and retry.)";

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

// ---- What is to be called --------------------------------------------------------------------------------------

std::string read_all(const std::string &path)
{
    std::ifstream file;
    if (path != "-") file.open(path);
    std::istream &input = path == "-" ? std::cin : file;
    const std::string text{std::istreambuf_iterator<char>(input), {}};
    if (path != "-" && !file.is_open()) throw Malformed(path + ": cannot be read");
    return text;
}

// function is null when the arguments stand for themselves.
std::vector<Literal> read_literals(const Wishes &wishes, const Function *function)
{
    if (!wishes.arguments_file.empty()) return read_json_arguments(read_all(wishes.arguments_file));
    std::vector<Literal> literals;
    for (const std::string &text : wishes.arguments) {
        const size_t position = literals.size() + 1;
        try {
            literals.push_back(function != nullptr ? read_literal_for(*function, position, text)
                                                   : read_literal(text, Unquoted::number));
        } catch (const Malformed &malformed) {
            throw Malformed("argument " + std::to_string(position) + " (" + text + "): " + malformed.what());
        }
    }
    return literals;
}

std::vector<Argument> raw_arguments(const std::vector<Literal> &literals)
{
    std::vector<Argument> arguments;
    for (const Literal &literal : literals) {
        try {
            arguments.push_back(argument_of(literal));
        } catch (const Malformed &malformed) {
            throw Malformed("argument " + std::to_string(arguments.size() + 1) + " (" + literal.written +
                            "): " + malformed.what());
        }
    }
    return arguments;
}

Invocation prepare(const Wishes &wishes)
{
    const Tables tables = read_tables(wishes.module);
    Invocation invocation{wishes.function, {}, {}};
    const Function *function = nullptr;
    if (wishes.raw || !tables.missing.empty()) {
        invocation.arguments = raw_arguments(read_literals(wishes, nullptr));
        for (const Function &own : tables.functions)
            if (function == nullptr && own.name == wishes.function) function = &own;
    } else {
        function = &find_function(tables.functions, wishes.function);
        invocation.arguments = arguments_for(*function, read_literals(wishes, function));
    }
    invocation.names = argument_names(function, invocation.arguments.size());
    return invocation;
}

// ---- The host --------------------------------------------------------------------------------------------------

int32_t answer_callback(ka_host *, int32_t value, void *user)
{
    const Answer answer = answer_to(static_cast<const Wishes *>(user)->callback, value);
    std::cerr << "ka: call-back " << value << ", answered " << answer.value
              << (answer.divides_by_zero ? ", since something is divided by zero\n" : "\n");
    return answer.value;
}

ka_options options_of(Wishes &wishes, const Invocation &invocation, int cancel_fd)
{
    const int64_t needed = segment_bytes_for(invocation.function, invocation.arguments, wishes.scratch_bytes);
    ka_options options;
    ka_options_init(&options, sizeof options);
    options.layout = wishes.layout == "64" ? KA_LAYOUT_64 : KA_LAYOUT_NATIVE;
    options.segment_bytes = static_cast<int32_t>(std::clamp<int64_t>(needed, usual_segment_bytes, INT32_MAX));
    if (wishes.segment_bytes != 0) options.segment_bytes = wishes.segment_bytes;
    options.scratch_bytes = wishes.scratch_bytes;
    options.deadline_ms = static_cast<int32_t>(wishes.deadline_s * 1000);
    options.cancel_fd = cancel_fd;
    options.checking = wishes.raw ? KA_RAW : KA_CHECKED;
    options.trace_level = wishes.trace_level;
    options.callback = answer_callback;
    options.user = &wishes;
    return options;
}

// ---- What is shown ---------------------------------------------------------------------------------------------

int show(const std::string &text, int status)
{
    std::cout << text << std::flush;
    return std::cout ? status : complain(EXIT_USAGE, "the results could not be written");
}

int show_error(const Wishes &wishes, const ka_error &error)
{
    const std::string remedy = error.error_class == KA_TOO_BIG && wishes.segment_bytes != 0 ? " (--segment)" : "";
    const int status = complain(exit_status_of(error.error_class), error.text + remedy);
    return wishes.json ? show("{" + error_members(wishes.function, error) + "}\n", status) : status;
}

int show_refusal(const Wishes &wishes, const char *text)
{
    ka_error error{};
    error.error_class = KA_REFUSED;
    error.retry = KA_RETRY_NO;
    std::string(text).copy(error.text, sizeof error.text - 1);
    return show_error(wishes, error);
}

int show_outcome(const Wishes &wishes, const Outcome &outcome, const Timing &timing)
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
    Outcome last{};
    Timing timing; // of those that were answered
    bool interrupted = false;
};

// Every call begins with the arguments as they were given.
Calls make_calls(ka_host *host, const Wishes &wishes, const Invocation &invocation, int cancel_fd)
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

int call_and_show(ka_host *host, const Wishes &wishes, const Invocation &invocation, int cancel_fd)
{
    const Calls calls = make_calls(host, wishes, invocation, cancel_fd);
    const std::string after = "after " + std::to_string(calls.timing.calls()) + " calls";
    if (calls.last.error_class != KA_DONE) {
        if (wishes.repeat > 0) complain(EXIT_NONZERO, after + ":");
        return show_error(wishes, *ka_last_error(host));
    }
    const int status = show_outcome(wishes, calls.last, calls.timing);
    return calls.interrupted ? complain(EXIT_INTERRUPTED, "interrupted " + after) : status;
}

int run_host(Wishes &wishes, const Invocation &invocation)
{
    const int cancel_fd = interruption_descriptor();
    const ka_options options = options_of(wishes, invocation, cancel_fd);
    ka_host *host = nullptr;
    const int32_t error_class = ka_open(&host, wishes.module.c_str(), &options);
    const int status = error_class == KA_DONE ? call_and_show(host, wishes, invocation, cancel_fd)
                                              : show_error(wishes, *ka_last_error(host));
    ka_close(host);
    return status;
}

// The option that a word was meant to be: an argument that begins like one stands behind "--". Throws Malformed.
void unmark_words(Wishes &wishes)
{
    take_mark(wishes.module);
    take_mark(wishes.function);
    for (std::string &word : wishes.arguments) {
        const bool is_marked = take_mark(word);
        const bool is_number = word.find_first_of("0123456789.") == 1;
        if (!is_marked && word.size() > 1 && word[0] == '-' && !is_number)
            throw Malformed("no option " + word + "; an argument that begins like one stands behind --");
    }
}

void check_wishes(const Wishes &wishes)
{
    try {
        answer_to(wishes.callback, 0);
    } catch (const Malformed &malformed) {
        throw Malformed("--callback " + wishes.callback + ": " + malformed.what());
    }
    if (!wishes.arguments_file.empty() && !wishes.arguments.empty())
        throw Malformed("arguments are given twice: with --args, and behind the function");
}

int run_call(Wishes &wishes)
{
    try {
        unmark_words(wishes);
        check_wishes(wishes);
        return run_host(wishes, prepare(wishes));
    } catch (const Malformed &malformed) {
        return complain(EXIT_USAGE, malformed.what());
    } catch (const Refused &refused) {
        return show_refusal(wishes, refused.what());
    }
}

// ---- The command line ------------------------------------------------------------------------------------------

void add_block_options(CLI::App *call, Wishes &wishes)
{
    call->add_option("--layout", wishes.layout, "layout of the shared block")
        ->check(CLI::IsMember({"native", "64"}))
        ->capture_default_str()
        ->type_name("LAYOUT");
    call->add_option("--segment", wishes.segment_bytes, "size of the shared segment; 0: as big as the call needs")
        ->check(CLI::Range(0, INT32_MAX).description(""))
        ->capture_default_str()
        ->type_name("BYTES");
    call->add_option("--scratch", wishes.scratch_bytes, "size of the scratch area at its end")
        ->capture_default_str()
        ->type_name("BYTES");
}

void add_call_options(CLI::App *call, Wishes &wishes)
{
    call->add_flag("--json", wishes.json, "shows one JSON object");
    call->add_flag("--raw", wishes.raw, "sends the arguments as written, unchecked");
    call->add_option("--args", wishes.arguments_file, "reads the arguments from a JSON file; -: standard input")
        ->type_name("FILE");
    call->add_option("--deadline", wishes.deadline_s, "seconds to wait for the answer")
        ->check(CLI::Range(0.001, 2000000.0).description(""))
        ->capture_default_str()
        ->type_name("SECONDS");
    call->add_option("--callback", wishes.callback,
                     "answer to every call-back: const:N, or arithmetic over value with + - * / % and parentheses, "
                     "in 32 bits that wrap around; 0 when it divides by zero")
        ->capture_default_str()
        ->type_name("RULE");
    call->add_option("--trace", wishes.trace_level, "trace of the call on standard error: 1 to 4")
        ->capture_default_str()
        ->type_name("N");
    call->add_option("--repeat", wishes.repeat, "calls N times on one host, and tells the times")
        ->check(CLI::Range(1, 10000000).description(""))
        ->type_name("N");
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
    add_call_options(call, *wishes);
    add_block_options(call, *wishes);
    call->callback([wishes, call, &exit_status] {
        wishes->arguments = call->remaining();
        exit_status = run_call(*wishes);
    });
}
