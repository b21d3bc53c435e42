// SPDX-License-Identifier: MIT
//
// The tables of a module, read from its file without running it: functions and their prototypes.
#ifndef KA_TOOL_TABLES_H
#define KA_TOOL_TABLES_H

#include <cstdint>
#include <string>
#include <vector>

struct Prototype {
    std::string name;
    int32_t type;
    int32_t min_elcnt;
};

struct Function {
    std::string name;
    std::vector<Prototype> prototypes;
};

// In table order. Empty when the file is no module or its tables cannot be made out.
std::vector<Function> read_tables(const std::string &module);

// What to call each of count arguments of a function: its prototype's name where that is known, and the position
// where it is not or where a VarArg gives several the same name.
std::vector<std::string> argument_names(const std::vector<Function> &tables, const std::string &function,
                                        size_t count);

#endif
