// SPDX-License-Identifier: MIT
//
// The functions of a module, for people and as JSON.
#ifndef KA_TOOL_MODULE_LISTING_H
#define KA_TOOL_MODULE_LISTING_H

#include <string>
#include <vector>

#include "base/json.h"
#include "functions.h"

// A table with a line for each argument; a JSON array with an object for each function.
std::string functions_text(const std::vector<Function> &functions);
Json functions_json(const std::vector<Function> &functions);

#endif
