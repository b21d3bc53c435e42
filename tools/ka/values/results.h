// SPDX-License-Identifier: MIT
//
// What came back from a call: read from the host, written as arguments are, or as JSON.
#ifndef KA_TOOL_VALUES_RESULTS_H
#define KA_TOOL_VALUES_RESULTS_H

#include <cstdint>
#include <string>

#include "arguments.h"
#include "base/json.h"

// Reads an argument that is given back; number counts from 1, sent is what went there.
Argument read_back(ka_host *host, int32_t number, const Argument &sent);

// A REAL with all its decimals. One of whole value shows a point, so that it is not taken for an INTEGER.
std::string real_text(const t_DECIMAL &value);

// As one would write it: [1, 2], 'text', 4.0.
std::string argument_text(const Argument &argument);

// REALs are numbers, with all their decimals and always a point or an exponent; null for a null REAL. A string that
// is not UTF-8 becomes {"hex":"..."}.
Json argument_json(const Argument &argument);

// The meaning of a return code that a host itself answers with; empty of any other.
std::string meaning_of_refusal(int32_t return_code);

#endif
