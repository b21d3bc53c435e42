// SPDX-License-Identifier: MIT
//
// One call of one function of a host that is open, and what came of it.
#ifndef KA_TOOL_CALL_ONE_CALL_H
#define KA_TOOL_CALL_ONE_CALL_H

#include <cstdint>
#include <string>
#include <vector>

#include "base/json.h"
#include "error_output.h"
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
    int32_t error_class; // KA_DONE; any other: the host's last error has the rest, and what follows is empty
    int32_t return_code;
    double milliseconds; // from the request to the answer
    std::vector<Result> results;
    std::string reason; // of a return code that is not 0, in the words of the function; may be empty
};

// errors collects what the host writes, if anything does.
CallOutcome invoke(ka_host *host, const Invocation &invocation, const ErrorOutput &errors);

// A line for each result, and the return code.
std::string outcome_text(const CallOutcome &outcome);

// "function", "return_code", "reason" if there is one, "results", "milliseconds".
JsonObject outcome_json(const std::string &function, const CallOutcome &outcome);

// The same for an error: the members that ka_report_json begins with; with the function's name for a call.
JsonObject error_json(const ka_error &error);
JsonObject error_json(const std::string &function, const ka_error &error);

// A time, for people and as JSON.
std::string milliseconds_text(double milliseconds);
Json milliseconds_json(double milliseconds);

#endif
