// SPDX-License-Identifier: MIT
//
// The subcommands of ka, one source each: declared here, and run once the command line is parsed.
#ifndef KA_TOOL_COMMAND_COMMANDS_H
#define KA_TOOL_COMMAND_COMMANDS_H

#include <string>
#include <vector>

namespace CLI {
class App;
}

// Each declares its subcommand; the one that the command line chose runs, and stores its exit status.
void add_new_command(CLI::App &app, int &exit_status);
void add_list_command(CLI::App &app, int &exit_status);
void add_call_command(CLI::App &app, int &exit_status);
void add_debug_command(CLI::App &app, int &exit_status);
void add_shell_command(CLI::App &app, int &exit_status);
void add_real_command(CLI::App &app, int &exit_status);
void add_check_command(CLI::App &app, int &exit_status);
void add_dump_command(CLI::App &app, int &exit_status);
void add_explain_command(CLI::App &app, int &exit_status);
void add_trace_command(CLI::App &app, int &exit_status);
void add_manual_command(CLI::App &app, int &exit_status);
void add_completion_command(CLI::App &app, int &exit_status);

// What a host is started under by ka debug: becomes the debugger, in the group of processes that has the terminal.
int become_debugger(const std::vector<std::string> &words);

#endif
