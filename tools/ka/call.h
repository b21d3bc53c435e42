// SPDX-License-Identifier: MIT
//
// ka call: one call of one function of a module.
#ifndef KA_TOOL_CALL_H
#define KA_TOOL_CALL_H

namespace CLI {
class App;
}

// Declares the subcommand; once it is parsed it runs, and stores its exit status.
void add_call_command(CLI::App &app, int &exit_status);

#endif
