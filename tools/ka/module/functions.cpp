// SPDX-License-Identifier: MIT
//
// See functions.h.
#include "functions.h"

#include <memory>

#include "ka/dll_block.h"

Tables read_tables(const std::string &module)
{
    char why[256] = "";
    const std::unique_ptr<ka_tables, decltype(&ka_free_tables)> tables(
        ka_read_tables(module.c_str(), why, sizeof why), ka_free_tables);
    if (tables == nullptr) return {{}, why};
    return {functions_of(*tables), "", tables->filled_at_start != 0};
}

static std::string about(const ka_tables &tables, const ka_function &function, int32_t argument)
{
    const char *text = ka_doc(&tables, &function, argument);
    return text != nullptr ? text : "";
}

std::vector<Function> functions_of(const ka_tables &tables)
{
    std::vector<Function> functions;
    for (int32_t i = 0; i < tables.function_count; i++) {
        const ka_function &own = tables.functions[i];
        Function function{own.name, {}, about(tables, own, 0)};
        for (int32_t k = 0; k < own.prototype_count && k < DLL_MAX_ARGS; k++) {
            const ka_prototype &prototype = own.prototypes[k];
            function.prototypes.push_back(
                {prototype.name, prototype.kind, prototype.min_elements, about(tables, own, k + 1)});
        }
        functions.push_back(std::move(function));
    }
    return functions;
}
