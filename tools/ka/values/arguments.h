// SPDX-License-Identifier: MIT
//
// Arguments of a call: literals whose types are decided, by themselves or by the prototypes of the function.
//
// By themselves: 42 is an INTEGER, 4.2 and 1e9 are REALs, 'text' is a STRING; integers among REALs are REALs.
// By a prototype: numbers are INTEGER or REAL as the function takes them, text without quotes for a string is that
// text, and what the function can change goes by reference, strings with room for 256 characters at least.
#ifndef KA_TOOL_VALUES_ARGUMENTS_H
#define KA_TOOL_VALUES_ARGUMENTS_H

#include <cstdint>
#include <string>
#include <vector>

#include "ka/caller.h"
#include "literal.h"
#include "module/signatures.h"

struct Argument {
    int32_t type; // DLL_INTEGER, DLL_REAL or DLL_STRING; says which of the vectors is in use
    int32_t passing;
    int32_t room;  // of strings; 0: as long as the longest
    bool is_array; // written, and shown, in brackets
    std::vector<int32_t> integers;
    std::vector<t_DECIMAL> reals;
    std::vector<std::string> strings;
};

// Room that a string gets which goes by reference to a function, unless it is given or the string is longer.
inline constexpr int32_t usual_room = 256;

// By itself. Throws Malformed.
Argument argument_of(const Literal &literal);

// Reads the text of the argument at position, counted from 1, in the way of its prototype. Throws Malformed.
Literal read_literal_for(const Function &function, size_t position, const std::string &text);

// All arguments of a call. Throws Refused: too many or too few, or one that the function does not take.
std::vector<Argument> arguments_for(const Function &function, const std::vector<Literal> &literals);

// An argument that came back as one that can be given again.
Literal literal_of(const Argument &argument);

// Adds it to the call that is being built; the class of the library's error.
int32_t add_argument(ka_host *host, const Argument &argument);

// Characters of the longest of its strings; INT32_MAX for more.
int32_t longest_string(const Argument &argument);

#endif
