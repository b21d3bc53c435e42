// SPDX-License-Identifier: MIT
//
// The functions of a module, for people and as JSON.
#ifndef KA_TOOL_MODULE_LISTING_H
#define KA_TOOL_MODULE_LISTING_H

#include <string>
#include <vector>

#include "base/json.h"
#include "functions.h"

// A table with a line for each argument; the long one also says what comes of one that is passed by value, and what
// the module's author has written.
enum class Length { usual, full };
std::string functions_text(const std::vector<Function> &functions, Length length = Length::usual);

// A JSON array with an object for each function, which has all of that.
Json functions_json(const std::vector<Function> &functions);

#endif
