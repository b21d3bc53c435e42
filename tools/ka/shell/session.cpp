// SPDX-License-Identifier: MIT
//
// See session.h.
#include "session.h"

#include <csignal>
#include <iostream>

#include "base/exit_status.h"
#include "base/interruption.h"
#include "base/output.h"
#include "call/failure.h"
#include "call/request.h"
#include "values/results.h"

Session::~Session()
{
    ka_close(host_);
    options_.host.errors.flush();
}

int Session::open()
{
    ka_options settings = host_options(options_.host, roomy_segment_bytes, interruption_);
    if (settings.under == nullptr) options_.host.errors.collect(settings); // a command may need the terminal
    settings.restart = KA_RESTART_NEXT_CALL;
    settings.restart_pause_ms = 0; // who types has paused
    const int32_t error_class = ka_open(&host_, options_.module.c_str(), &settings);
    if (error_class != KA_DONE) return show_error("");
    learn_tables();
    pid_ = ka_pid(host_);
    return EXIT_DONE;
}

// Those of the running host: a module can compute them when it starts.
void Session::learn_tables()
{
    const ka_tables *tables = ka_host_tables(host_);
    functions_ = tables != nullptr ? functions_of(*tables) : read_tables(options_.module).functions;
}

// ---- Showing ---------------------------------------------------------------------------------------------------

int Session::fail(int status, const std::string &text) const
{
    return report_error(static_cast<ExitStatus>(status), place_ + text);
}

int Session::show(const std::string &text, int status) const
{
    return write_results(text, status, place_);
}

int Session::show_error(const std::string &function)
{
    options_.host.errors.flush();
    const int32_t error_class = ka_last_error(host_)->error_class;
    const std::string remedy = error_class == KA_TOO_BIG ? " (--segment)" : "";
    const int status = report_error_lines(exit_status_of(error_class), place_ + failure_text(host_) + remedy);
    return options_.json ? show(failure_json(host_, function) + "\n", status) : status;
}

int Session::fail_call(const std::string &function, int32_t error_class, const std::string &text)
{
    const int status = fail(exit_status_of(error_class), text);
    return options_.json ? show(refused_call_json(function, error_class, text) + "\n", status) : status;
}

// ---- A call ----------------------------------------------------------------------------------------------------

int Session::call_function(const Words &words)
{
    try {
        const Request request{words[0], {words.begin() + 1, words.end()}, ""};
        const CallOutcome outcome =
            invoke(host_, (options_.host.raw ? prepare_raw : prepare)(request, functions_), options_.host.errors);
        report_restart(outcome.error_class == KA_DONE ? ka_pid(host_) : pid_of_failure(host_));
        const int status = outcome.error_class == KA_DONE ? show_call(outcome, words[0]) : show_error(words[0]);
        take_interruptions();
        return status;
    } catch (const Malformed &malformed) {
        return fail_call(words[0], KA_ARGUMENT, malformed.what());
    } catch (const Refused &refused) {
        return fail_call(words[0], KA_REFUSED, refused.what());
    }
}

int Session::show_call(const CallOutcome &outcome, const std::string &function)
{
    keep_results(outcome);
    last_call_ = outcome.return_code == 0 ? EXIT_DONE : EXIT_NONZERO;
    const std::string refusal = options_.host.raw ? meaning_of_refusal(outcome.return_code) : "";
    if (!refusal.empty())
        fail(EXIT_NONZERO, "a host answers " + std::to_string(outcome.return_code) + " when " + refusal);
    return show(options_.json ? outcome_json(function, outcome).text() + "\n" : outcome_text(outcome), last_call_);
}

void Session::keep_results(const CallOutcome &outcome)
{
    for (const Result &result : outcome.results)
        variables_[variable_name(result.name)] = argument_text(result.value);
}

// What came while the call was under way has ended it, or has come too late to end anything.
void Session::take_interruptions()
{
    for (int signal; (signal = take_interruption(interruption_)) != 0;)
        is_terminated_ |= signal == SIGTERM;
}

// pid: of the host that was called, 0 when none was.
void Session::report_restart(int32_t pid)
{
    if (pid != 0 && pid != pid_)
        std::cerr << "ka: the module was started again, its memory is new (process " << pid << ")\n";
    if (pid != 0) pid_ = pid;
}

// ---- A line ----------------------------------------------------------------------------------------------------

// NAME = VALUE, the blanks being optional.
static bool is_assignment(const Words &words)
{
    const size_t begin = words[0].starts_with('$') ? 1 : 0;
    size_t end = begin;
    while (end < words[0].size() && is_name_character(words[0][end]))
        end++;
    if (end == begin) return false;
    return end < words[0].size() ? words[0][end] == '=' : words.size() > 1 && words[1].starts_with('=');
}

int Session::set_variable(const Words &words)
{
    std::string line;
    for (const std::string &word : words)
        line += (line.empty() ? "" : " ") + word;
    const size_t equals = line.find('=');
    const size_t begin = line.find_first_not_of(' ', equals + 1);
    const std::string name = line.substr(0, line.find_first_of(" =", 1));
    const std::string value = begin == std::string::npos ? "" : line.substr(begin);
    argument_of(read_literal(value, Unquoted::number)); // throws when it is not a value
    variables_[name.substr(name.starts_with('$') ? 1 : 0)] = value;
    return EXIT_DONE;
}

int Session::run(const Words &words)
{
    return is_assignment(words) ? set_variable(words) : call_function(words);
}

// ---- What orders change ----------------------------------------------------------------------------------------

int Session::set_trace_level(int32_t level)
{
    options_.host.trace_level = level;
    return ka_set_trace(host_, level) == KA_DONE ? EXIT_DONE : show_error("");
}

void Session::set_deadline(int32_t milliseconds)
{
    ka_set_deadline(host_, milliseconds);
}

int Session::restart()
{
    const int32_t error_class = ka_restart(host_);
    report_restart(ka_pid(host_));
    if (error_class == KA_DONE) learn_tables();
    return error_class == KA_DONE ? EXIT_DONE : show_error("");
}
