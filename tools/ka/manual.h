// SPDX-License-Identifier: MIT
//
// ka manual: the manual page ka(1).
#ifndef KA_TOOL_MANUAL_H
#define KA_TOOL_MANUAL_H

namespace CLI {
class App;
}

// Declares the subcommand; once it is parsed it runs, and stores its exit status.
void add_manual_command(CLI::App &app, int &exit_status);

#endif
