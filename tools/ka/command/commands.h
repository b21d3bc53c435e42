// SPDX-License-Identifier: MIT
//
// The subcommands of ka, one source each: declared here, and run once the command line is parsed.
#ifndef KA_TOOL_COMMAND_COMMANDS_H
#define KA_TOOL_COMMAND_COMMANDS_H

namespace CLI {
class App;
}

// Each declares its subcommand; the one that the command line chose runs, and stores its exit status.
void add_list_command(CLI::App &app, int &exit_status);
void add_call_command(CLI::App &app, int &exit_status);
void add_shell_command(CLI::App &app, int &exit_status);
void add_real_command(CLI::App &app, int &exit_status);
void add_check_command(CLI::App &app, int &exit_status);
void add_dump_command(CLI::App &app, int &exit_status);
void add_explain_command(CLI::App &app, int &exit_status);
void add_trace_command(CLI::App &app, int &exit_status);
void add_manual_command(CLI::App &app, int &exit_status);
void add_completion_command(CLI::App &app, int &exit_status);

#endif
