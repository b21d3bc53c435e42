// SPDX-License-Identifier: MIT
//
// The tables of a module: functions and their prototypes. Read from its file without running it, or from a host.
#ifndef KA_TOOL_MODULE_FUNCTIONS_H
#define KA_TOOL_MODULE_FUNCTIONS_H

#include <cstdint>
#include <string>
#include <vector>

#include "ka/caller.h"

struct Prototype {
    std::string name;
    int32_t type; // KA_VARARG ... of ka/dll_module.h; any number when the module's table is wrong
    int32_t min_elcnt;
};

struct Function {
    std::string name;
    std::vector<Prototype> prototypes; // 50 at most, as many as a call can use
};

struct Tables {
    std::vector<Function> functions; // in the module's order: of two with one name only the first can be called
    std::string missing;             // what the file does not tell, and why; empty when it tells all
};

Tables read_tables(const std::string &module);

// The tables of a running host, as its library gives them.
std::vector<Function> functions_of(const ka_tables &tables);

#endif
