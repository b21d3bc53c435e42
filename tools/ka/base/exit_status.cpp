// SPDX-License-Identifier: MIT
//
// See exit_status.h.
#include "exit_status.h"

#include <iostream>
#include <unistd.h>

#include "ka/caller.h"
#include "terminal.h"
#include "text.h"

namespace {

struct Row {
    ExitStatus status;
    const char *meaning;
};

constexpr Row rows[] = {
    {EXIT_DONE, "done: the function returned 0, the REAL is as asked for"},
    {EXIT_NONZERO, "the function returned another code, the REAL has a status, something was found"},
    {EXIT_USAGE, "bad usage or a malformed argument, or the results could not be written"},
    {EXIT_REFUSED, "refused: the call does not suit the module's tables, or is too big"},
    {EXIT_NOT_STARTED, "no such module, process or segment, or the module could not be started"},
    {EXIT_DIED, "the module died"},
    {EXIT_DEADLINE, "no answer within the deadline"},
    {EXIT_INTERRUPTED, "interrupted by SIGINT or SIGTERM"},
};

} // namespace

ExitStatus exit_status_of(int32_t error_class)
{
    switch (error_class) {
    case KA_DONE:
        return EXIT_DONE;
    case KA_ARGUMENT:
        return EXIT_USAGE;
    case KA_REFUSED:
    case KA_TOO_BIG:
        return EXIT_REFUSED;
    case KA_DIED:
    case KA_CLOSED:
        return EXIT_DIED;
    case KA_DEADLINE:
        return EXIT_DEADLINE;
    case KA_CANCELLED:
        return EXIT_INTERRUPTED;
    default:
        return EXIT_NOT_STARTED; // KA_START; KA_SYSTEM, which a module needs to be started and driven
    }
}

std::string exit_status_help()
{
    std::string text = "Exit status:\n";
    for (const Row &row : rows) {
        const std::string number = std::to_string(row.status);
        text += "  " + number + std::string(5 - number.size(), ' ') + row.meaning + "\n";
    }
    return text;
}

static int write_line(ExitStatus status, const std::string &text)
{
    std::cerr << painted("ka:", Paint::error, STDERR_FILENO) << ' ' << text << '\n';
    return status;
}

int report_error(ExitStatus status, const std::string &text)
{
    return write_line(status, printable(text));
}

int report_error_lines(ExitStatus status, const std::string &lines)
{
    return write_line(status, printable_lines(lines));
}
