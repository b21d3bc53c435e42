// SPDX-License-Identifier: MIT
//
// From what the command line says to a call that can be made. Throws Malformed and Refused.
#ifndef KA_TOOL_CALL_REQUEST_H
#define KA_TOOL_CALL_REQUEST_H

#include <string>
#include <vector>

#include "module/functions.h"
#include "one_call.h"

struct Request {
    std::string function;
    std::vector<std::string> arguments;
    std::string arguments_file; // of JSON, instead of arguments; empty for none
};

// The functions' prototypes decide what an argument is.
Invocation prepare(const Request &request, const std::vector<Function> &functions);

// The arguments stand for themselves; prototypes only name what comes back.
Invocation prepare_raw(const Request &request, const std::vector<Function> &functions);

#endif
