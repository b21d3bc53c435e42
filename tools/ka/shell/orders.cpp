// SPDX-License-Identifier: MIT
//
// See orders.h.
#include "orders.h"

#include "base/duration.h"
#include "base/exit_status.h"
#include "base/json.h"
#include "base/text.h"
#include "cli/mistakes.h"
#include "module/listing.h"
#include "module/signatures.h"

namespace {

// ---- One function for each order -------------------------------------------------------------------------------

int help(Session &session, const Words &)
{
    return session.show(order_help(""), EXIT_DONE);
}

int list(Session &session, const Words &words)
{
    try {
        std::vector<Function> functions = session.functions();
        if (words.size() == 2) functions = {find_function(functions, words[1])};
        return session.show(
            session.shows_json() ? functions_json(functions).text() + "\n" : functions_text(functions), EXIT_DONE);
    } catch (const Refused &refused) {
        return session.fail(EXIT_REFUSED, refused.what());
    }
}

int vars(Session &session, const Words &)
{
    JsonObject json;
    std::string text;
    for (const auto &[name, value] : session.variables()) {
        json.add(name, printable(value));
        text.append(name).append(" = ").append(printable(value)).append("\n");
    }
    return session.show(session.shows_json() ? json.text() + "\n" : text, EXIT_DONE);
}

int trace(Session &session, const Words &words)
{
    const std::string fault = fault_of_number(words[1], {0, KA_TRACE_MAX});
    if (!fault.empty()) return session.fail(EXIT_USAGE, ":trace " + fault);
    return session.set_trace_level(std::stoi(words[1]));
}

int deadline(Session &session, const Words &words)
{
    const std::string fault = fault_of_duration(words[1]);
    if (!fault.empty()) return session.fail(EXIT_USAGE, ":deadline " + fault);
    session.set_deadline(deadline_ms(words[1]));
    return EXIT_DONE;
}

int callback(Session &session, const Words &words)
{
    check_callback_rule(":callback", words[1]);
    session.set_callback_rule(words[1]);
    return EXIT_DONE;
}

int restart(Session &session, const Words &)
{
    return session.restart();
}

int quit(Session &session, const Words &)
{
    session.end();
    return EXIT_DONE;
}

// ---- The table -------------------------------------------------------------------------------------------------

struct Order {
    const char *name;
    const char *argument; // in brackets when it can be left out; empty for none
    const char *text;
    int (*run)(Session &, const Words &);
};

constexpr Order orders[] = {
    {":list", "[FUNCTION]", "lists the functions of the module, or one of them", list},
    {":vars", "", "lists the variables", vars},
    {":trace", "N", "sets the level of the host's trace on standard error: 0 to 4", trace},
    {":deadline", "TIME", "sets the time that a call may take", deadline},
    {":callback", "RULE", "sets the answer to every call-back: const:N, or arithmetic over value", callback},
    {":restart", "", "ends the host and starts a new one", restart},
    {":help", "", "shows this", help},
    {":quit", "", "ends the session; so does ctrl-D", quit},
};

} // namespace

std::vector<std::string> order_names()
{
    std::vector<std::string> names;
    for (const Order &order : orders)
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
    for (const Order &order : orders)
        text += line(order.name + (" " + std::string(order.argument)), order.text);
    return text + line("# ...", "a comment, also after a line");
}

bool is_order(const Words &words)
{
    return words[0].starts_with(':');
}

// The beginning of a name is enough where no other name begins so.
int run_order(Session &session, const Words &words)
{
    const Order *found = nullptr;
    for (const Order &order : orders) {
        if (!std::string_view(order.name).starts_with(words[0])) continue;
        if (found != nullptr)
            return session.fail(EXIT_USAGE, words[0] + " could be " + found->name + " or " + order.name);
        found = &order;
    }
    if (found == nullptr) return session.fail(EXIT_USAGE, "there is no " + words[0] + "; :help lists what there is");
    const std::string argument = found->argument;
    const size_t most = argument.empty() ? 1 : 2;
    const size_t least = argument.empty() || argument.starts_with('[') ? 1 : 2;
    if (words.size() < least || words.size() > most)
        return session.fail(EXIT_USAGE,
                            "usage: " + std::string(found->name) + (argument.empty() ? "" : " " + argument));
    return found->run(session, words);
}
