// SPDX-License-Identifier: MIT
//
// The exit statuses of ka, in one table, and the line on standard error that goes with those that are failures.
#ifndef KA_TOOL_BASE_EXIT_STATUS_H
#define KA_TOOL_BASE_EXIT_STATUS_H

#include <cstdint>
#include <string>

enum ExitStatus {
    EXIT_DONE = 0,
    EXIT_NONZERO = 1,
    EXIT_USAGE = 2,
    EXIT_REFUSED = 3,
    EXIT_NOT_STARTED = 4,
    EXIT_DIED = 5,
    EXIT_DEADLINE = 6,
    EXIT_INTERRUPTED = 130
};

// The status for a class of errors of the caller's library.
ExitStatus exit_status_of(int32_t error_class);

// The table, a line for each status.
std::string exit_status_help();

// Writes text to standard error as a line of ka, whatever is in it; returns status.
int report_error(ExitStatus status, const std::string &text);

// The same of a report with lines of its own.
int report_error_lines(ExitStatus status, const std::string &lines);

#endif
