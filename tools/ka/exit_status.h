// SPDX-License-Identifier: MIT
//
// The exit statuses of ka, in one table.
#ifndef KA_TOOL_EXIT_STATUS_H
#define KA_TOOL_EXIT_STATUS_H

#include <cstdint>
#include <string>

// 3 is kept free.
enum ExitStatus {
    EXIT_DONE = 0,
    EXIT_NONZERO = 1,
    EXIT_USAGE = 2,
    EXIT_NOT_STARTED = 4,
    EXIT_DIED = 5,
    EXIT_DEADLINE = 6,
    EXIT_TOO_BIG = 7,
    EXIT_INTERRUPTED = 130
};

// The status for a class of errors of the caller's library.
ExitStatus exit_status_of(int32_t error_class);

// The table, a line for each status.
std::string exit_status_help();

#endif
