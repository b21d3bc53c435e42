// SPDX-License-Identifier: MIT
//
// Arguments of a call as they are written on the command line:
//
//   42 -5            INTEGER
//   4.2 1e9          REAL, exact
//   'text'           STRING; \' \\ \n \t \r and \xHH stand for a quote, a backslash and other characters
//   [1,2] ['a','b']  an array of one type; integers among REALs are REALs
//   'text':20        with room for 20 characters; so do arrays of strings
//   str:20           an empty string with room for 20
//   &...             any of these by reference
#ifndef KA_TOOL_ARGUMENTS_H
#define KA_TOOL_ARGUMENTS_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "ka/caller.h"

struct Argument {
    int32_t type; // DLL_INTEGER, DLL_REAL or DLL_STRING; says which of the vectors is in use
    int32_t passing;
    int32_t room;  // of strings; 0: as long as the longest
    bool is_array; // written, and shown, in brackets
    std::vector<int32_t> integers;
    std::vector<t_DECIMAL> reals;
    std::vector<std::string> strings;
};

// Says what is wrong with an argument.
struct Malformed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Reads one argument; throws Malformed.
Argument read_argument(const std::string &text);

// Adds it to the call that is being built; the class of the library's error.
int32_t add_argument(ka_host *host, const Argument &argument);

#endif
