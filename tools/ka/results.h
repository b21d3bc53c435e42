// SPDX-License-Identifier: MIT
//
// What came back from a call: read from the host, written as arguments are, or as JSON.
#ifndef KA_TOOL_RESULTS_H
#define KA_TOOL_RESULTS_H

#include <cstdint>
#include <string>

#include "arguments.h"

// What came back in an argument that is given back; number counts from 1, sent is what went there.
Argument read_back(ka_host *host, int32_t number, const Argument &sent);

// As one would write it: [1, 2], 'text', 4.0.
std::string argument_text(const Argument &argument);

// REALs are numbers, with all their decimals and always a point or an exponent; null for a null REAL. A string that
// is not UTF-8 becomes {"hex":"..."}.
std::string argument_json(const Argument &argument);

// The same for one text, quotes included; and for a name or message, which stays a string whatever is in it.
std::string string_json(const std::string &text);
std::string name_json(const std::string &name);

// What a host means that answers code itself; empty when hosts do not.
std::string meaning_of_refusal(int32_t code);

#endif
