// SPDX-License-Identifier: MIT
//
// ka explain: what a code, a name or a message means, why it comes and what to do.
#ifndef KA_TOOL_EXPLAIN_H
#define KA_TOOL_EXPLAIN_H

namespace CLI {
class App;
}

// Declares the subcommand; once it is parsed it runs, and stores its exit status.
void add_explain_command(CLI::App &app, int &exit_status);

#endif
