// SPDX-License-Identifier: MIT
//
// The functions of a module and their prototypes: read from its file without running it, or from a host.
#ifndef KA_TOOL_MODULE_FUNCTIONS_H
#define KA_TOOL_MODULE_FUNCTIONS_H

#include <cstdint>
#include <string>
#include <vector>

#include "ka/caller.h"

struct Prototype {
    std::string name;
    int32_t kind; // KA_VARARG ... of ka/dll_module.h; any number when the module's table is wrong
    int32_t min_elements;
    std::string about; // what the module's author has written; may be empty
};

struct Function {
    std::string name;
    std::vector<Prototype> prototypes; // 50 at most, as many as a call can use
    std::string about;                 // as that of a prototype
};

struct Tables {
    std::vector<Function> functions; // in the module's order: of two with one name only the first can be called
    std::string fault;               // why the file has none; empty when it has some
    bool filled_at_start = false;    // the module fills a part of them as it starts: a host has them

    bool are_whole() const { return fault.empty() && !filled_at_start; }
};

Tables read_tables(const std::string &module);

// The tables of a running host, as its library gives them.
std::vector<Function> functions_of(const ka_tables &tables);

#endif
