// SPDX-License-Identifier: MIT
//
// See functions.h. A module exports its two tables to the host, so they are among its dynamic symbols.
#include "functions.h"

#include "image.h"
#include "ka/dll_block.h"

namespace {

constexpr uint32_t word = 4; // of a module, whatever this program's is
constexpr uint32_t function_record = 4 * word;
constexpr uint32_t prototype_record = 3 * word;
constexpr size_t functions_max = 100000; // a table without an end is no table

// What keeps the tables from being read.
struct Missing {
    std::string what;
};

uint32_t need_word(const Image &image, uint32_t address, const std::string &what)
{
    const auto value = image.word_at(address);
    if (value) return *value;
    const bool later = image.is_mapped(address);
    throw Missing{what + (later ? " is filled when the module starts" : " points out of the module")};
}

std::string name_at(const Image &image, uint32_t address)
{
    return address == 0 ? "" : image.text_at(address);
}

std::vector<Prototype> read_prototypes(const Image &image, uint32_t list, const Function &function, int32_t first,
                                       int32_t count)
{
    std::vector<Prototype> prototypes;
    const std::string what = "the table of prototypes, which \"" + function.name + "\" uses,";
    for (int32_t i = 0; i < count && i < DLL_MAX_ARGS; i++) {
        const uint32_t record = list + (static_cast<uint32_t>(first) + static_cast<uint32_t>(i)) * prototype_record;
        const uint32_t name = need_word(image, record, what);
        const auto type = static_cast<int32_t>(need_word(image, record + word, what));
        const auto min_elcnt = static_cast<int32_t>(need_word(image, record + 2 * word, what));
        prototypes.push_back({name_at(image, name), type, min_elcnt});
    }
    return prototypes;
}

uint32_t need_table(const Image &image, const char *name)
{
    const Image::Symbol symbol = image.symbol(name);
    if (symbol.address == 0) throw Missing{std::string("does not define ") + name};
    return symbol.address;
}

void read_functions(const Image &image, std::vector<Function> &functions)
{
    const std::string what = "the table of functions";
    uint32_t record = need_table(image, "KaFuncList");
    const uint32_t prototypes = need_table(image, "KaArgList");
    while (const uint32_t name = need_word(image, record, what)) {
        if (functions.size() == functions_max) throw Missing{what + " has no end"};
        Function function{image.text_at(name), {}};
        const auto first = static_cast<int32_t>(need_word(image, record + word, what));
        const auto count = static_cast<int32_t>(need_word(image, record + 2 * word, what));
        function.prototypes = read_prototypes(image, prototypes, function, first, count);
        functions.push_back(std::move(function));
        record += function_record;
    }
}

} // namespace

Tables read_tables(const std::string &module)
{
    const Image image(module);
    if (!image.fault().empty()) return {{}, image.fault()};
    Tables tables;
    try {
        read_functions(image, tables.functions);
    } catch (const Missing &missing) {
        tables.missing = missing.what;
    }
    return tables;
}

std::vector<Function> functions_of(const ka_tables &tables)
{
    std::vector<Function> functions;
    for (int32_t i = 0; i < tables.function_count; i++) {
        const ka_function &own = tables.functions[i];
        Function function{own.name != nullptr ? own.name : "", {}};
        for (int32_t k = 0; k < own.prototype_count && k < DLL_MAX_ARGS; k++) {
            const ka_prototype &prototype = own.prototypes[k];
            const char *name = prototype.name != nullptr ? prototype.name : "";
            function.prototypes.push_back({name, prototype.kind, prototype.min_elements});
        }
        functions.push_back(std::move(function));
    }
    return functions;
}
