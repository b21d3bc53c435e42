// SPDX-License-Identifier: MIT
//
// Arguments of a call as a JSON array:
//
//   42 4.2 "text" [1,2] ["a","b"]      numbers with all their decimals, strings, arrays
//   {"string":"text","room":20}        with room; "by_reference":true is allowed in every object
//   {"integer":3} {"real":"1.5"}       of that type in so many words, the number as such or as text
//   {"hex":"00ff"}                     a string of any bytes
#ifndef KA_TOOL_VALUES_JSON_ARGUMENTS_H
#define KA_TOOL_VALUES_JSON_ARGUMENTS_H

#include <string>
#include <vector>

#include "literal.h"

// Throws Malformed.
std::vector<Literal> read_json_arguments(const std::string &text);

#endif
