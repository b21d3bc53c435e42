// SPDX-License-Identifier: MIT
//
// ka: calls functions of modules from the command line, and looks at REALs. Results go to standard output, everything
// else to standard error.
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <fcntl.h>
#include <iostream>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "base/exit_status.h"
#include "base/prefix.h"
#include "base/words.h"
#include "cli/completion_answer.h"
#include "cli/mistakes.h"
#include "cli/option_tree.h"
#include "command/commands.h"

// A file descriptor that is closed would be given to the next thing opened, which would then be read for input, or
// written to as results. These are at their end when read, and fail when written.
static void hold_standard_fds()
{
    for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(fd, F_GETFD) == -1 && open("/dev/null", O_RDONLY) != fd) return;
}

static int show_help(const CLI::App &app, const CLI::Success &help)
{
    const int status = app.exit(help);
    return std::cout.flush() ? status : report_error(EXIT_USAGE, "the answer could not be written");
}

// clang-format off
static constexpr struct {
    std::string_view name;
    void (*add)(CLI::App &app, int &exit_status);
} commands[] = {
    {"new", add_new_command},
    {"list", add_list_command},
    {"call", add_call_command},
    {"debug", add_debug_command},
    {"shell", add_shell_command},
    {"real", add_real_command},
    {"check", add_check_command},
    {"dump", add_dump_command},
    {"explain", add_explain_command},
    {"trace", add_trace_command},
    {"manual", add_manual_command},
    {"completion", add_completion_command},
};
// clang-format on

// Of most command lines the first word says whose options are needed; to declare those of all takes longer than some
// of them run. The manual and the completion are about all of them, and so are --help and a misspelt name.
static void add_commands(CLI::App &app, int &exit_status, int argc, char **argv)
{
    const std::string_view first = argc > 1 ? argv[1] : "";
    if (argc == 2 && (first == "--version" || first == "--prefix")) return;
    const bool is_about_all = first == "manual" || first == "completion";
    for (const auto &command : commands) {
        if (is_about_all || command.name != first) continue;
        command.add(app, exit_status);
        return;
    }
    for (const auto &command : commands)
        command.add(app, exit_status);
}

static constexpr const char *description =
    R"(Calls functions of modules, each in a process of its own, and looks at REALs.

A MODULE without a slash that is not in the current folder is looked for in the folders of the environment's KA_PATH, which
colons separate.)";

static void show_prefix()
{
    std::cout << installation_prefix() << '\n';
    throw CLI::Success();
}

static int run(int argc, char **argv)
{
    CLI::App app(description, "ka");
    int exit_status = EXIT_DONE;
    shorten_help(app);
    app.set_version_flag("--version", "ka " KA_VERSION);
    app.add_flag_callback("--prefix", show_prefix, "Display where ka is installed and exit");
    app.require_subcommand(0, 1);
    add_commands(app, exit_status, argc, argv);
    app.footer(exit_status_help());
    // Not subcommands: the words that follow are gdb's, or unfinished.
    if (argc > 2 && std::string(argv[1]) == "debugger") return become_debugger({argv + 2, argv + argc});
    if (argc > 1 && std::string(argv[1]) == "complete") {
        std::cout << completion_answer(app, std::vector<std::string>(argv + 2, argv + argc));
        return EXIT_DONE;
    }
    try {
        app.parse(command_words(argc, argv));
    } catch (const CLI::Success &help) {
        return show_help(app, help);
    } catch (const CLI::ParseError &error) {
        return refuse_usage(app, error, {argv + 1, argv + argc});
    }
    return app.get_subcommands().empty() ? report_error(EXIT_USAGE, "a subcommand is missing; see ka --help")
                                         : exit_status;
}

int main(int argc, char **argv)
{
    hold_standard_fds();
    try {
        return run(argc, argv);
    } catch (const std::exception &error) { // no memory, for one
        return report_error(EXIT_USAGE, error.what());
    }
}
