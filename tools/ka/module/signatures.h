// SPDX-License-Identifier: MIT
//
// What the functions of a module take: the rules of the kinds of arguments, and the function that is meant.
#ifndef KA_TOOL_MODULE_SIGNATURES_H
#define KA_TOOL_MODULE_SIGNATURES_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "functions.h"

// Says how a call does not suit the module's tables.
struct Refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// ---- Kinds -----------------------------------------------------------------------------------------------------

bool is_kind(int32_t kind);
// "IntByValue"; "kind 12" for what is not a kind, "outside the module" for that of a prototype there.
std::string kind_name(int32_t kind);

// Does a kind accept a value type of the block, can the function change such an argument?
bool takes(int32_t kind, int32_t type);
bool changes(int32_t kind);

// The number of elements below which a call is refused.
int64_t min_elements(const Prototype &prototype);

// "INTEGER"; and as ka call passes it, "INTEGER by reference"
std::string types_taken_by(const Prototype &prototype);
std::string taken_by(const Prototype &prototype);

// What comes of an argument that is passed by value. The table of kinds in docs/module-guide.md says the same.
std::string by_value_text(int32_t kind);

// ---- Functions -------------------------------------------------------------------------------------------------

// Throws Refused, with the nearest name when there is one near: of other case, or a few characters apart.
const Function &find_function(const std::vector<Function> &functions, const std::string &name);

// The prototype of the argument at position, counted from 1: a VarArg's for all that follow. Null for more arguments
// than the function takes.
const Prototype *prototype_at(const Function &function, size_t position);

// How many of the prototypes count: those after a VarArg are never used.
size_t used_prototypes(const Function &function);

// "a, b, sum"
std::string argument_list(const Function &function);

// Throws Refused when the function does not take so many arguments.
void check_count(const Function &function, size_t count);

// A distinct label for each of count arguments: its prototype's name, plus its position if the name is missing or
// used twice. function may be null.
std::vector<std::string> argument_names(const Function *function, size_t count);

#endif
