// SPDX-License-Identifier: MIT
//
// See prototypes.h. The rules are the host's own.
#include "prototypes.h"

#include <algorithm>
#include <cctype>
#include <map>

#include "ka/dll_block.h"
#include "ka/dll_module.h"

// ---- Kinds -----------------------------------------------------------------------------------------------------

namespace {

struct KindRow {
    const char *name;
    bool integers;
    bool reals;
    bool strings;
    bool changes;
    bool counts; // has a least number of elements
};

// In the order of their numbers.
constexpr KindRow kinds[] = {
    {"VarArg", true, true, true, true, false},           {"IntByValue", true, true, false, false, false},
    {"IntByReference", true, false, false, true, false}, {"IntArray", true, false, false, true, true},
    {"RealByValue", true, true, false, false, false},    {"RealByReference", false, true, false, true, false},
    {"RealArray", false, true, false, true, true},       {"zString", false, false, true, false, false},
    {"String", false, false, true, true, false},         {"StringArray", false, false, true, true, true},
};

const KindRow &row_of(int32_t kind)
{
    static constexpr KindRow none = {"", false, false, false, false, false};
    return is_kind(kind) ? kinds[kind] : none;
}

} // namespace

bool is_kind(int32_t kind)
{
    return kind >= KA_VARARG && kind <= KA_STRING_ARRAY;
}

std::string kind_name(int32_t kind)
{
    return is_kind(kind) ? row_of(kind).name : "kind " + std::to_string(kind);
}

bool takes(int32_t kind, int32_t type)
{
    const KindRow &row = row_of(kind);
    if (type == DLL_INTEGER) return row.integers;
    return type == DLL_REAL ? row.reals : row.strings;
}

bool changes(int32_t kind)
{
    return row_of(kind).changes;
}

int64_t least_elements(const Prototype &prototype)
{
    return row_of(prototype.type).counts ? std::max(prototype.min_elcnt, 0) : 0;
}

std::string taken_by(const Prototype &prototype)
{
    if (prototype.type == KA_VARARG) return "anything";
    const KindRow &row = row_of(prototype.type);
    std::string text = row.integers ? row.reals ? "INTEGER or REAL" : "INTEGER" : row.reals ? "REAL" : "STRING";
    return text + (row.changes ? " by reference" : " by value");
}

// ---- The function that is meant --------------------------------------------------------------------------------

namespace {

std::string lower(std::string text)
{
    for (char &c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// Characters to be changed, left out, put in or swapped with their neighbour.
size_t distance(const std::string &a, const std::string &b)
{
    std::vector<std::vector<size_t>> d(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); i++)
        d[i][0] = i;
    for (size_t j = 0; j <= b.size(); j++)
        d[0][j] = j;
    for (size_t i = 1; i <= a.size(); i++) {
        for (size_t j = 1; j <= b.size(); j++) {
            const size_t change = a[i - 1] == b[j - 1] ? 0 : 1;
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + change});
            const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
            if (swapped) d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    }
    return d[a.size()][b.size()];
}

// A third of the characters may be wrong. Names of very different lengths are not compared.
std::string nearest_name(const std::vector<Function> &functions, const std::string &name)
{
    std::string nearest;
    size_t least = std::max<size_t>(name.size() / 3, 1) + 1;
    for (const Function &function : functions) {
        const size_t lengths[] = {function.name.size(), name.size()};
        if (std::max(lengths[0], lengths[1]) - std::min(lengths[0], lengths[1]) >= least) continue;
        const size_t apart = distance(lower(function.name), lower(name));
        if (apart >= least) continue;
        least = apart;
        nearest = function.name;
    }
    return nearest;
}

} // namespace

const Function &find_function(const std::vector<Function> &functions, const std::string &name)
{
    for (const Function &function : functions)
        if (function.name == name) return function;
    const std::string nearest = nearest_name(functions, name);
    const std::string remedy = nearest.empty() ? "ka list shows what it has" : "did you mean \"" + nearest + "\"?";
    throw Refused("the module has no function \"" + name + "\"; " + remedy);
}

// ---- Arguments -------------------------------------------------------------------------------------------------

size_t used_prototypes(const Function &function)
{
    const auto is_vararg = [](const Prototype &prototype) { return prototype.type == KA_VARARG; };
    const auto vararg = std::find_if(function.prototypes.begin(), function.prototypes.end(), is_vararg);
    const auto used = static_cast<size_t>(vararg - function.prototypes.begin());
    return vararg == function.prototypes.end() ? used : used + 1;
}

namespace {

bool ends_with_vararg(const Function &function)
{
    const size_t used = used_prototypes(function);
    return used > 0 && function.prototypes[used - 1].type == KA_VARARG;
}

std::string arguments_text(size_t count)
{
    return count == 0 ? "no arguments" : std::to_string(count) + (count == 1 ? " argument" : " arguments");
}

} // namespace

const Prototype *prototype_at(const Function &function, size_t position)
{
    const size_t used = used_prototypes(function);
    if (position <= used) return &function.prototypes[position - 1];
    return ends_with_vararg(function) ? &function.prototypes[used - 1] : nullptr;
}

std::string argument_list(const Function &function)
{
    std::string text;
    for (size_t i = 0; i < used_prototypes(function); i++)
        text += (i == 0 ? "" : ", ") + function.prototypes[i].name;
    return ends_with_vararg(function) ? text + "..." : text;
}

void check_count(const Function &function, size_t count)
{
    const bool open = ends_with_vararg(function);
    const size_t least = used_prototypes(function) - (open ? 1 : 0);
    const std::string got = ", got " + std::to_string(count);
    if (count > DLL_MAX_ARGS)
        throw Refused(function.name + ": no call has more than " + arguments_text(DLL_MAX_ARGS) + got);
    if (count == least || (open && count > least)) return;
    const std::string list = argument_list(function);
    throw Refused(function.name + ": takes " + (open ? "at least " : "") + arguments_text(least) +
                  (list.empty() ? "" : " (" + list + ")") + got);
}

std::vector<std::string> argument_names(const Function *function, size_t count)
{
    std::vector<std::string> names;
    std::map<std::string, int> uses;
    for (size_t i = 1; i <= count; i++) {
        const Prototype *prototype = function != nullptr ? prototype_at(*function, i) : nullptr;
        names.push_back(prototype != nullptr ? prototype->name : "");
        uses[names.back()]++;
    }
    for (size_t i = 0; i < count; i++) {
        const std::string position = "argument " + std::to_string(i + 1);
        if (names[i].empty())
            names[i] = position;
        else if (uses[names[i]] > 1)
            names[i] += " (" + position + ")";
    }
    return names;
}
