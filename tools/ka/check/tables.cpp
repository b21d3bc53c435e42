// SPDX-License-Identifier: MIT
//
// See finding.h. The host believes its module's tables: it follows every index, and stops at a name that is null.
#include <algorithm>
#include <map>

#include "base/text.h"
#include "elf/pointers.h"
#include "finding.h"
#include "wire/kinds.h"

namespace {

constexpr uint64_t functions_max = 100000;

// A record begins with a pointer to its name and two numbers; a function has a pointer more.
uint64_t pointer_size(const ElfFile &file)
{
    return static_cast<uint64_t>(file.machine->bits) / 8;
}

uint64_t prototype_size(const ElfFile &file)
{
    return pointer_size(file) + 2 * sizeof(int32_t);
}

uint64_t function_size(const ElfFile &file)
{
    return prototype_size(file) + pointer_size(file);
}

struct Prototype {
    bool has_name;
    std::string name;
    int32_t kind, min_elements;
};

struct Function {
    std::string name;
    int32_t first, count;
};

struct Tables {
    std::vector<Function> functions;
    std::vector<Prototype> prototypes; // all of KaArgList
    bool has_size;                     // that of KaArgList is known
    bool ends;                         // KaFuncList has a record whose name is null
};

struct Record {
    bool has_name;
    std::string name; // "?" where the file does not have it: the program gets it as it starts
    int32_t first_number, second_number;
};

// Nothing outside of the program.
std::optional<Record> read_record(const ElfFile &file, const Pointers &pointers, uint64_t address)
{
    const uint64_t numbers = address + pointer_size(file);
    const auto first = word_at(file, numbers);
    const auto second = word_at(file, numbers + sizeof(int32_t));
    if (!word_at(file, address) || !first || !second) return std::nullopt;
    return Record{pointers.at(address) != 0, pointers.text_at(address).value_or("?"), static_cast<int32_t>(*first),
                  static_cast<int32_t>(*second)};
}

void read_functions(const ElfFile &file, const Pointers &pointers, const ElfSymbol &symbol, Tables &tables)
{
    const uint64_t known = symbol.size / function_size(file);
    const uint64_t count = symbol.size == 0 ? functions_max : std::min(known, functions_max);
    for (uint64_t i = 0; i < count; i++) {
        const auto record = read_record(file, pointers, symbol.value + i * function_size(file));
        if (!record) return;
        tables.ends = !record->has_name;
        if (tables.ends) return;
        tables.functions.push_back({record->name, record->first_number, record->second_number});
    }
}

Tables read_tables(const ElfFile &file, const ElfSymbol &functions, const ElfSymbol &prototypes)
{
    const Pointers pointers(file);
    Tables tables{};
    tables.has_size = prototypes.size != 0;
    read_functions(file, pointers, functions, tables);
    const uint64_t count = std::min(prototypes.size / prototype_size(file), functions_max * DLL_MAX_ARGS);
    for (uint64_t i = 0; i < count; i++) {
        const auto record = read_record(file, pointers, prototypes.value + i * prototype_size(file));
        if (!record) break;
        tables.prototypes.push_back({record->has_name, record->name, record->first_number, record->second_number});
    }
    return tables;
}

// ---- One prototype ---------------------------------------------------------------------------------------------

bool is_array_kind(int32_t kind)
{
    return wire::is_kind(kind) && wire::kinds[kind].array;
}

void check_prototype(const std::string &where, const Prototype &prototype, Findings &findings)
{
    if (!prototype.has_name)
        findings.push_back({Severity::warning, where + " has no name", "name it: traces and errors show the name"});
    if (prototype.kind == INT32_MIN)
        findings.push_back({Severity::error, where + " lies outside the module: it cannot be called",
                            "arg_idx counts records of KaArgList from 0: look at it and at arg_cnt"});
    else if (!wire::is_kind(prototype.kind))
        findings.push_back({Severity::error,
                            where + " is of kind " + std::to_string(prototype.kind) + ": calls are answered with -1",
                            "use a kind of ka/dll_module.h, 0 to 9"});
    else if (is_array_kind(prototype.kind) && prototype.min_elements < 0)
        findings.push_back({Severity::warning,
                            where + " asks for at least " + std::to_string(prototype.min_elements) + " elements",
                            "0 takes any number"});
    else if (!is_array_kind(prototype.kind) && prototype.min_elements != 0)
        findings.push_back({Severity::note,
                            where + " has a minimum of " + std::to_string(prototype.min_elements) +
                                " elements, which its kind ignores",
                            "write 0, or use an array kind"});
}

// ---- One function ----------------------------------------------------------------------------------------------

// The place of the first VarArg; the number of prototypes when there is none.
size_t place_of_vararg(const std::vector<Prototype> &prototypes)
{
    const auto is_vararg = [](const Prototype &each) { return wire::takes_all_further(each.kind); };
    return static_cast<size_t>(std::find_if(prototypes.begin(), prototypes.end(), is_vararg) - prototypes.begin());
}

// A call has 50 arguments at most; a VarArg after the fiftieth never matches one.
void check_reach(const std::string &name, const std::vector<Prototype> &prototypes, Findings &findings)
{
    const size_t vararg = place_of_vararg(prototypes);
    if (vararg + 1 < prototypes.size())
        findings.push_back({Severity::warning,
                            name + ": the prototypes after " + printable(prototypes[vararg].name) +
                                " (VarArg) are never used: it takes all arguments that follow",
                            "let the VarArg be the last"});
    if (vararg <= DLL_MAX_ARGS && vararg < prototypes.size()) return;
    if (prototypes.size() <= DLL_MAX_ARGS) return;
    findings.push_back({Severity::error,
                        name + ": has " + std::to_string(prototypes.size()) +
                            " prototypes, and no call has more than 50 arguments: it cannot be called",
                        "pass many values as one array"});
}

void check_names(const std::string &name, const std::vector<Prototype> &prototypes, Findings &findings)
{
    std::map<std::string, int> seen;
    for (const Prototype &prototype : prototypes)
        if (prototype.has_name && seen[prototype.name]++ == 1)
            findings.push_back({Severity::note, name + ": two arguments are named " + printable(prototype.name),
                                "give them different names: results are shown by them"});
}

bool check_count(const std::string &name, int32_t count, Findings &findings)
{
    if (count >= 0) return true;
    findings.push_back({Severity::error,
                        name + ": counts " + std::to_string(count) + " prototypes: it cannot be called",
                        "arg_cnt is the number of its prototypes"});
    return false;
}

// False when the prototypes are not all inside the table.
bool check_place(const Tables &tables, const Function &function, Findings &findings)
{
    const std::string name = printable(function.name);
    const int64_t end = int64_t{function.first} + function.count;
    if (!check_count(name, function.count, findings)) return false;
    if (function.count == 0) return true;
    if (function.first >= 0 && (!tables.has_size || end <= static_cast<int64_t>(tables.prototypes.size())))
        return tables.has_size;
    findings.push_back({Severity::error,
                        name + ": its prototypes " + std::to_string(function.first) + " to " +
                            std::to_string(end - 1) + " are outside KaArgList, which has " +
                            std::to_string(tables.prototypes.size()),
                        "arg_idx counts records of KaArgList from 0: look at it and at arg_cnt"});
    return false;
}

void check_prototypes(const std::string &name, const std::vector<Prototype> &prototypes, Findings &findings)
{
    for (size_t i = 0; i < prototypes.size(); i++) {
        const std::string shown = prototypes[i].has_name ? " (" + printable(prototypes[i].name) + ")" : "";
        check_prototype(name + ": argument " + std::to_string(i + 1) + shown, prototypes[i], findings);
    }
    check_reach(name, prototypes, findings);
    check_names(name, prototypes, findings);
}

void check_function(const Tables &tables, const Function &function, Findings &findings)
{
    if (!check_place(tables, function, findings)) return;
    const auto begin = tables.prototypes.begin() + (function.count == 0 ? 0 : function.first);
    check_prototypes(printable(function.name), {begin, begin + function.count}, findings);
}

// ---- All -------------------------------------------------------------------------------------------------------

void check_functions(const std::vector<Function> &functions, Findings &findings)
{
    if (functions.empty())
        findings.push_back({Severity::warning, "it has no functions: every call is answered with 7",
                            "list the functions in KaFuncList"});
    std::map<std::string, int> seen;
    for (const Function &function : functions) {
        if (function.name.empty())
            findings.push_back(
                {Severity::warning, "a function has the empty name", "name it, or end the table before"});
        if (function.name != "?" && seen[function.name]++ == 1)
            findings.push_back(
                {Severity::warning,
                 "two functions are named " + printable(function.name) + ": only the first can be called",
                 "rename one of them"});
    }
}

void check_unused(const Tables &tables, Findings &findings)
{
    std::vector<bool> used(tables.prototypes.size());
    for (const Function &function : tables.functions) {
        const int64_t end = std::min(int64_t{function.first} + function.count, static_cast<int64_t>(used.size()));
        for (int64_t i = std::max(function.first, 0); i < end; i++) // a damaged count can be of billions
            used[static_cast<size_t>(i)] = true;
    }
    const auto count = std::count(used.begin(), used.end(), false);
    if (count > 0 && !tables.functions.empty())
        findings.push_back({Severity::note,
                            std::to_string(count) + " of " + std::to_string(used.size()) +
                                " records of KaArgList belong to no function",
                            "look at arg_idx and arg_cnt of the functions, or remove them"});
}

} // namespace

bool check_tables(const ElfFile &program, Findings &findings)
{
    const ElfSymbol *functions = find_defined(program, "KaFuncList");
    const ElfSymbol *prototypes = find_defined(program, "KaArgList");
    if (functions == nullptr || prototypes == nullptr) return true;
    const Tables tables = read_tables(program, *functions, *prototypes);
    const bool is_filled_later = functions->size > function_size(program) && tables.functions.empty() && tables.ends;
    if (is_filled_later) return false;
    if (!tables.ends)
        findings.push_back({Severity::error, "KaFuncList does not end: a name that is not found ends the host",
                            "end it with a record whose name is null"});
    check_functions(tables.functions, findings);
    for (const Function &function : tables.functions)
        check_function(tables, function, findings);
    check_unused(tables, findings);
    return true;
}

void check_tables(const ka_tables &tables, Findings &findings)
{
    std::vector<Function> functions;
    for (int32_t i = 0; i < tables.function_count; i++)
        functions.push_back({tables.functions[i].name, 0, tables.functions[i].prototype_count});
    check_functions(functions, findings);
    for (int32_t i = 0; i < tables.function_count; i++) {
        const ka_function &function = tables.functions[i];
        const std::string name = printable(function.name);
        if (!check_count(name, function.prototype_count, findings)) continue;
        std::vector<Prototype> prototypes;
        for (int32_t k = 0; k < function.prototype_count; k++) {
            const ka_prototype &each = function.prototypes[k];
            prototypes.push_back({each.name[0] != '\0', each.name, each.kind, each.min_elements});
        }
        check_prototypes(name, prototypes, findings);
    }
}
