// SPDX-License-Identifier: MIT
//
// See calling.h.
#include "calling.h"

#include <algorithm>
#include <iostream>
#include <poll.h>

#include "backtrace.h"
#include "command_words.h"
#include "exit_status.h"
#include "failure.h"
#include "interruption.h"
#include "invocation.h"
#include "repeat.h"
#include "results.h"
#include "terminal.h"
#include "usage.h"

namespace {

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
    if (tables.missing.empty()) return run_prepared(wishes, prepare(wishes, tables.functions));
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

} // namespace

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
