// SPDX-License-Identifier: MIT
//
// Where a module is that is named without a path: in the current folder, or else in one of KA_PATH.
#ifndef KA_TOOL_MODULE_FIND_H
#define KA_TOOL_MODULE_FIND_H

#include <string>
#include <vector>

// Puts the path of what was found in the place of a name without a slash. Empty, or why there is nothing to be found.
std::string find_module(std::string &module);

// The names of the programs in the folders of KA_PATH.
std::vector<std::string> modules_in_path();

#endif
