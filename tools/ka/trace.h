// SPDX-License-Identifier: MIT
//
// ka trace: the trace level of a running host, switched from outside.
#ifndef KA_TOOL_TRACE_H
#define KA_TOOL_TRACE_H

namespace CLI {
class App;
}

// Declares the subcommand; once it is parsed it runs, and stores its exit status.
void add_trace_command(CLI::App &app, int &exit_status);

#endif
