// SPDX-License-Identifier: MIT
//
// The orders of ka shell: lines that begin with a colon.
#include <iostream>

#include "base/duration.h"
#include "base/exit_status.h"
#include "base/json.h"
#include "base/text.h"
#include "cli/mistakes.h"
#include "cli/subcommand.h"
#include "module/listing.h"
#include "module/signatures.h"
#include "session.h"
#include "values/literal.h"

struct Session::Order {
    const char *name;
    const char *argument; // in brackets when it can be left out; empty for none
    const char *text;
    int (Session::*run)(const Words &);
};

const Session::Order Session::orders[] = {
    {":list", "[FUNCTION]", "lists the functions of the module, or one of them", &Session::list},
    {":vars", "", "lists the variables", &Session::vars},
    {":trace", "N", "sets the level of the host's trace on standard error: 0 to 4", &Session::trace},
    {":deadline", "TIME", "sets the time that a call may take", &Session::deadline},
    {":callback", "RULE", "sets the answer to every call-back: const:N, or arithmetic over value",
     &Session::callback},
    {":restart", "", "ends the host and starts a new one", &Session::restart},
    {":help", "", "shows this", &Session::help},
    {":quit", "", "ends the session; so does ctrl-D", &Session::quit},
};

std::vector<std::string> order_names()
{
    std::vector<std::string> names;
    for (const Session::Order &order : Session::orders)
        names.emplace_back(order.name);
    return names;
}

std::string order_help(const std::string &indentation)
{
    const auto line = [&](std::string usage, const std::string &text) {
        usage.resize(23, ' ');
        return indentation + usage + text + "\n";
    };
    std::string text = line("FUNCTION ARGUMENT...", "calls a function; arguments are written as for ka call") +
                       line("NAME = VALUE", "sets a variable: sum = 42, names = ['a','b']");
    for (const Session::Order &order : Session::orders)
        text += line(order.name + (" " + std::string(order.argument)), order.text);
    return text + line("# ...", "a comment, also behind a line");
}

// The beginning of a name stands for it when it is that of no other.
int Session::run_order(const Words &words)
{
    const Order *found = nullptr;
    for (const Order &order : orders) {
        if (!std::string_view(order.name).starts_with(words[0])) continue;
        if (found != nullptr) return fail(EXIT_USAGE, words[0] + " could be " + found->name + " or " + order.name);
        found = &order;
    }
    if (found == nullptr) return fail(EXIT_USAGE, "there is no " + words[0] + "; :help lists what there is");
    const std::string argument = found->argument;
    const size_t most = argument.empty() ? 1 : 2;
    const size_t least = argument.empty() || argument.starts_with('[') ? 1 : 2;
    if (words.size() < least || words.size() > most)
        return fail(EXIT_USAGE, "usage: " + std::string(found->name) + (argument.empty() ? "" : " " + argument));
    return (this->*found->run)(words);
}

int Session::help(const Words &)
{
    return show(order_help(""), EXIT_DONE);
}

int Session::list(const Words &words)
{
    const auto text = wishes_.json ? functions_json : functions_text;
    const std::string end = wishes_.json ? "\n" : "";
    try {
        if (words.size() == 2) return show(text({find_function(functions_, words[1])}) + end, EXIT_DONE);
        return show(text(functions_) + end, EXIT_DONE);
    } catch (const Refused &refused) {
        return fail(EXIT_REFUSED, refused.what());
    }
}

int Session::vars(const Words &)
{
    std::string text;
    for (const auto &[name, value] : variables_) {
        if (wishes_.json)
            text += (text.empty() ? "" : ",") + name_json(name) + ":" + name_json(printable(value));
        else
            text.append(name).append(" = ").append(printable(value)).append("\n");
    }
    return show(wishes_.json ? "{" + text + "}\n" : text, EXIT_DONE);
}

int Session::trace(const Words &words)
{
    const std::string refusal = fault_of_number(words[1], {0, KA_TRACE_MAX});
    if (!refusal.empty()) return fail(EXIT_USAGE, ":trace " + refusal);
    wishes_.host.trace_level = std::stoi(words[1]);
    return ka_set_trace(host_, wishes_.host.trace_level) == KA_DONE ? EXIT_DONE : show_error("");
}

int Session::deadline(const Words &words)
{
    const std::string refusal = refuse_duration(words[1]);
    if (!refusal.empty()) return fail(EXIT_USAGE, ":deadline " + refusal);
    ka_set_deadline(host_, deadline_ms(words[1]));
    return EXIT_DONE;
}

int Session::callback(const Words &words)
{
    check_callback_rule(":callback", words[1]);
    wishes_.host.callback = words[1];
    return EXIT_DONE;
}

int Session::restart(const Words &)
{
    const int32_t error_class = ka_restart(host_);
    tell_restart(ka_pid(host_));
    if (error_class == KA_DONE) learn_tables();
    return error_class == KA_DONE ? EXIT_DONE : show_error("");
}

int Session::quit(const Words &)
{
    is_over_ = true;
    return EXIT_DONE;
}
