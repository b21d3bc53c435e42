// SPDX-License-Identifier: MIT
//
// ka real: looks at one number, or at the result of one operation on numbers.
#ifndef KA_TOOL_REAL_H
#define KA_TOOL_REAL_H

namespace CLI {
class App;
}

// Declares the subcommand; once it is parsed it runs, and stores its exit status.
void add_real_command(CLI::App &app, int &exit_status);

#endif
