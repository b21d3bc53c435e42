// SPDX-License-Identifier: MIT
//
// ka shell: a session on one host, typed or read from a script.
#ifndef KA_TOOL_SHELL_H
#define KA_TOOL_SHELL_H

namespace CLI {
class App;
}

// Declares the subcommand; once it is parsed it runs, and stores its exit status.
void add_shell_command(CLI::App &app, int &exit_status);

#endif
