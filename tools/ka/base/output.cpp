// SPDX-License-Identifier: MIT
//
// See output.h.
#include "output.h"

#include <iostream>

#include "exit_status.h"

int write_results(const std::string &text, int status, const std::string &place)
{
    std::cout << text << std::flush;
    return std::cout ? status : report_error(EXIT_USAGE, place + "the results could not be written");
}
