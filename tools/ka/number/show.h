// SPDX-License-Identifier: MIT
//
// Every form of one REAL, for people and as JSON.
#ifndef KA_TOOL_NUMBER_SHOW_H
#define KA_TOOL_NUMBER_SHOW_H

#include <string>

#include "number.h"

// packed_length: bytes of the packed form, 2 or more. Lines, each with its line end.
std::string show_number(const Number &number, int packed_length);

// The same as one JSON object.
std::string number_json(const Number &number, int packed_length);

// How a compares with b, -1, 0 or 1, in the two forms.
std::string show_order(int order, const std::string &a, const std::string &b);
std::string order_json(int order);

#endif
