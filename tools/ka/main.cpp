// SPDX-License-Identifier: MIT
//
// ka: calls functions of modules from the command line. Results go to standard output, everything else to standard
// error.
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <iostream>

#include "call.h"
#include "exit_status.h"

static int complain(const std::string &text)
{
    std::cerr << "ka: " << text << "; ka --help tells more\n";
    return EXIT_USAGE;
}

static int run(int argc, char **argv)
{
    CLI::App app("Calls functions of modules, each in a process of its own.", "ka");
    int exit_status = EXIT_DONE;
    app.require_subcommand(0, 1);
    add_call_command(app, exit_status);
    app.footer(exit_status_help());
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &help) {
        return app.exit(help);
    } catch (const CLI::ParseError &error) {
        return complain(error.what());
    }
    return app.get_subcommands().empty() ? complain("a subcommand is missing") : exit_status;
}

int main(int argc, char **argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception &error) { // no memory, for one
        return complain(error.what());
    }
}
