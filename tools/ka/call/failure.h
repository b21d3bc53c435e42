// SPDX-License-Identifier: MIT
//
// Reports of a call, or a start, that failed.
#ifndef KA_TOOL_CALL_FAILURE_H
#define KA_TOOL_CALL_FAILURE_H

#include <string>

#include "ka/caller.h"

// The host's last error without a line end: its report when the host died or hung, else the one line.
std::string failure_text(ka_host *host);

// The same as a JSON object.
std::string failure_json(ka_host *host, const std::string &function);

// The process that the host's last error is about, when it had been started; else 0.
int32_t pid_of_failure(ka_host *host);

// Of a call that is not made: error_class is KA_REFUSED for what the tables refuse, KA_ARGUMENT for malformed words.
std::string refused_call_json(const std::string &function, int32_t error_class, const std::string &text);

// Reports a failure that belongs to no call: a line on standard error and, when JSON is asked for, an object on
// standard output. Returns the exit status of its class.
enum class Form { text, json };
int report_failure(int32_t error_class, const std::string &text, Form form);

// The same of a process or a segment that cannot be looked at: there is none, or it is something else, or it belongs
// to somebody else. The exit status is the one of a module that does not exist.
int report_unreachable(int32_t error_class, const std::string &text, Form form);

#endif
