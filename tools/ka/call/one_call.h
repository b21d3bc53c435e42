// SPDX-License-Identifier: MIT
//
// One call of one function of a host that is open, and what came of it.
#ifndef KA_TOOL_CALL_ONE_CALL_H
#define KA_TOOL_CALL_ONE_CALL_H

#include <cstdint>
#include <string>
#include <vector>

#include "values/arguments.h"

struct Invocation {
    std::string function;
    std::vector<Argument> arguments;
    std::vector<std::string> names; // of the arguments, as many
};

struct Result {
    std::string name;
    Argument value;
};

struct CallOutcome {
    int32_t error_class; // KA_DONE; any other: the host's last error tells the rest, and what follows is empty
    int32_t code;
    double milliseconds; // from the request to the answer
    std::vector<Result> results;
};

CallOutcome invoke(ka_host *host, const Invocation &invocation);

// A line for each result, and the return code.
std::string outcome_text(const CallOutcome &outcome);

// Members of a JSON object: "function", "return_code", "results", "milliseconds".
std::string outcome_members(const std::string &function, const CallOutcome &outcome);

// Likewise: those members of a report (ka_report_json) that tell what the error is; of a call with its function.
std::string error_members(const ka_error &error);
std::string error_members(const std::string &function, const ka_error &error);

// A time in milliseconds as JSON has it.
std::string milliseconds_text(double milliseconds);

#endif
