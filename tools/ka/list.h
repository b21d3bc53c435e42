// SPDX-License-Identifier: MIT
//
// ka list: the functions of a module.
#ifndef KA_TOOL_LIST_H
#define KA_TOOL_LIST_H

#include <string>
#include <vector>

#include "tables.h"

namespace CLI {
class App;
}

// Declares the subcommand; once it is parsed it runs, and stores its exit status.
void add_list_command(CLI::App &app, int &exit_status);

// A table with a line for each argument; a JSON array with an object for each function.
std::string functions_text(const std::vector<Function> &functions);
std::string functions_json(const std::vector<Function> &functions);

#endif
