// SPDX-License-Identifier: MIT
//
// ka check: what would go wrong with a module, before it does.
#ifndef KA_TOOL_CHECK_H
#define KA_TOOL_CHECK_H

namespace CLI {
class App;
}

// Declares the subcommand; once it is parsed it runs, and stores its exit status.
void add_check_command(CLI::App &app, int &exit_status);

#endif
