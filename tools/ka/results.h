// SPDX-License-Identifier: MIT
//
// Results of a call, written as arguments are.
#ifndef KA_TOOL_RESULTS_H
#define KA_TOOL_RESULTS_H

#include <cstdint>
#include <string>

#include "arguments.h"

// What came back in an argument; number counts from 1, argument is what was sent there.
std::string show_result(ka_host *host, int32_t number, const Argument &argument);

// What a host means that answers code itself; empty when hosts do not.
std::string meaning_of_refusal(int32_t code);

#endif
