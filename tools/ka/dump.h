// SPDX-License-Identifier: MIT
//
// ka dump: the shared block of a segment or a process, decoded.
#ifndef KA_TOOL_DUMP_H
#define KA_TOOL_DUMP_H

namespace CLI {
class App;
}

// Declares the subcommand; once it is parsed it runs, and stores its exit status.
void add_dump_command(CLI::App &app, int &exit_status);

#endif
