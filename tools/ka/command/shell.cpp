// SPDX-License-Identifier: MIT
//
// ka shell: a session on one host, typed or read from a script.
#include "commands.h"

#include <filesystem>
#include <iostream>
#include <memory>
#include <unistd.h>

#include "base/exit_status.h"
#include "base/interruption.h"
#include "call/failure.h"
#include "cli/subcommand.h"
#include "shell/completion.h"
#include "shell/editor.h"
#include "shell/session.h"
#include "values/literal.h"

namespace {

constexpr const char *beginning = R"(Calls functions of a module on one living host, line by line.

Lines are:
)";

constexpr const char *details =
    R"(What a function gives back is kept in a variable named after the argument; $NAME stands for its value. Blanks separate
words, except in 'text', in "words" and in brackets.

When the module dies in a call, past a deadline or at ctrl-C, the next call starts it again.

On a terminal, lines are edited with the usual keys; the tab key completes functions, variables and orders, and shows
what a function takes; ctrl-R searches the lines typed before, which are kept in $XDG_STATE_HOME/ka/history or
~/.local/state/ka/history, unless they begin with a blank. ~/.editrc is read.

A script, standard input that is no terminal, ends at the first line that fails; a return code that is not 0 is no
failure. The exit status is that of the first failure, else that of the last call; 0 after a session on a terminal.
)";

constexpr const char *examples = R"text(Examples:
  ka shell ./adder
  echo 'add 2 40 0' | ka shell ./adder
  printf 'add 2 40 0\nadd $sum 1 0\n' | ka shell --json ./adder
)text";

std::string prompt_of(const std::string &module)
{
    return std::filesystem::path(module).filename().string() + "> ";
}

int run_typed(Session &session, const SessionWishes &wishes, int interruption)
{
    const auto completer = [&session](const std::string &before) { return complete_line(session, before); };
    Editor editor(prompt_of(wishes.module), completer, interruption);
    std::string line;
    while (!session.is_over() && !session.is_terminated()) {
        const Got got = editor.next(line);
        if (got == Got::line) session.run(line);
        if (got == Got::ended) return EXIT_INTERRUPTED;
        if (got == Got::end) break;
    }
    return session.is_terminated() ? EXIT_INTERRUPTED : EXIT_DONE;
}

// A line fails when its status is above that of a function's own return code.
int run_script(Session &session, const SessionWishes &wishes, int interruption)
{
    Script script(interruption);
    std::string line;
    int failure = EXIT_DONE;
    for (int number = 1; !session.is_over(); number++) {
        const Got got = script.next(line);
        if (got == Got::ended) return EXIT_INTERRUPTED;
        if (got != Got::line) break;
        session.set_place("line " + std::to_string(number) + ": ");
        const int status = session.run(line);
        if (status == EXIT_INTERRUPTED || session.is_terminated()) return EXIT_INTERRUPTED;
        if (failure == EXIT_DONE && status > EXIT_NONZERO) failure = status;
        if (failure != EXIT_DONE && !wishes.keep_going) break;
    }
    return failure != EXIT_DONE ? failure : session.last_call();
}

int run_shell(SessionWishes &wishes)
{
    try {
        check_callback_rule("--callback", wishes.host.callback);
    } catch (const Malformed &malformed) {
        return tell_failure(KA_ARGUMENT, malformed.what(), wishes.json ? Form::json : Form::text);
    }
    const int interruption = interruption_descriptor();
    Session session(wishes, interruption);
    const int status = session.open();
    if (status != EXIT_DONE) return status;
    const bool is_typed = isatty(STDIN_FILENO) != 0 && isatty(STDERR_FILENO) != 0;
    return (is_typed ? run_typed : run_script)(session, wishes, interruption);
}

} // namespace

void add_shell_command(CLI::App &app, int &exit_status)
{
    const auto wishes = std::make_shared<SessionWishes>();
    CLI::App *shell = add_subcommand(app, {"shell", beginning + order_help("  ") + details, examples});
    add_option(shell, {.name = "MODULE", .text = "path of the module", .is_required = true}, wishes->module);
    add_flag(shell, "--json", wishes->json, "shows one JSON object for each call");
    add_flag(shell, "--keep-going", wishes->keep_going, "does not end a script at a line that fails");
    add_host_options(shell, wishes->host, std::to_string(roomy_segment_bytes));
    when_chosen(shell, exit_status, [wishes] { return run_shell(*wishes); });
}
