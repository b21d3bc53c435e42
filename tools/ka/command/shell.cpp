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
#include "module/find.h"
#include "shell/completion.h"
#include "shell/editor.h"
#include "shell/orders.h"
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

A script, standard input that is not a terminal, ends at the first line that fails; a return code that is not 0 is not a
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

// An exit status.
int run_line(Session &session, const std::string &line)
{
    try {
        const Words words = words_of_line(line, session.variables());
        if (words.empty()) return EXIT_DONE;
        return is_order(words) ? run_order(session, words) : session.run(words);
    } catch (const Malformed &malformed) {
        return session.fail(EXIT_USAGE, malformed.what());
    }
}

int run_typed(Session &session, const SessionOptions &options, int interruption)
{
    const auto completer = [&session](const std::string &before) { return complete_line(session, before); };
    Editor editor(prompt_of(options.module), completer, interruption);
    std::string line;
    while (!session.is_over() && !session.is_terminated()) {
        const LineEvent event = editor.next(line);
        if (event == LineEvent::line) run_line(session, line);
        if (event == LineEvent::ended) return EXIT_INTERRUPTED;
        if (event == LineEvent::end) break;
    }
    return session.is_terminated() ? EXIT_INTERRUPTED : EXIT_DONE;
}

// A line fails when its status is above that of a function's own return code.
int run_script(Session &session, const SessionOptions &options, int interruption)
{
    Script script(interruption);
    std::string line;
    int failure = EXIT_DONE;
    for (int number = 1; !session.is_over(); number++) {
        const LineEvent event = script.next(line);
        if (event == LineEvent::ended) return EXIT_INTERRUPTED;
        if (event != LineEvent::line) break;
        session.set_place("line " + std::to_string(number) + ": ");
        const int status = run_line(session, line);
        if (status == EXIT_INTERRUPTED || session.is_terminated()) return EXIT_INTERRUPTED;
        if (failure == EXIT_DONE && status > EXIT_NONZERO) failure = status;
        if (failure != EXIT_DONE && !options.keep_going) break;
    }
    return failure != EXIT_DONE ? failure : session.last_call();
}

int run_shell(SessionOptions &options)
{
    try {
        check_callback_rule("--callback", options.host.callback);
    } catch (const Malformed &malformed) {
        return report_failure(KA_ARGUMENT, malformed.what(), options.json ? Form::json : Form::text);
    }
    const std::string fault = find_module(options.module);
    if (!fault.empty())
        return report_failure(KA_START, options.module + ": " + fault, options.json ? Form::json : Form::text);
    const int interruption = open_interruption_fd();
    Session session(options, interruption);
    const int status = session.open();
    if (status != EXIT_DONE) return status;
    const bool is_typed = isatty(STDIN_FILENO) != 0 && isatty(STDERR_FILENO) != 0;
    return (is_typed ? run_typed : run_script)(session, options, interruption);
}

} // namespace

void add_shell_command(CLI::App &app, int &exit_status)
{
    const auto options = std::make_shared<SessionOptions>();
    CLI::App *shell = add_subcommand(app, {"shell", beginning + order_help("  ") + details, examples});
    add_option(shell,
               {.name = "MODULE",
                .text = "path of the module, or its name in the current folder or in KA_PATH",
                .is_required = true},
               options->module);
    add_flag(shell, "--json", options->json, "shows one JSON object for each call");
    add_flag(shell, "--keep-going", options->keep_going, "does not end a script at a line that fails");
    add_host_options(shell, options->host, std::to_string(roomy_segment_bytes));
    when_chosen(shell, exit_status, [options] { return run_shell(*options); });
}
