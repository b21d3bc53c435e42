// SPDX-License-Identifier: MIT
//
// See signatures.h. The rules are the host's own.
#include "signatures.h"

#include <algorithm>
#include <map>

#include "base/nearest.h"
#include "ka/caller.h"
#include "wire/kinds.h"

// ---- Kinds -----------------------------------------------------------------------------------------------------

bool is_kind(int32_t kind)
{
    return wire::is_kind(kind);
}

std::string kind_name(int32_t kind)
{
    if (kind == INT32_MIN) return "outside the module";
    return is_kind(kind) ? ka_kind_name(kind) : "kind " + std::to_string(kind);
}

bool takes(int32_t kind, int32_t type)
{
    return is_kind(kind) && wire::accepts(wire::kinds[kind], type);
}

bool changes(int32_t kind)
{
    return ka_kind_gives_back(kind) != 0;
}

int64_t min_elements(const Prototype &prototype)
{
    return is_kind(prototype.kind) && wire::kinds[prototype.kind].array ? std::max(prototype.min_elements, 0) : 0;
}

std::string types_taken_by(const Prototype &prototype)
{
    return ka_kind_takes(prototype.kind);
}

std::string taken_by(const Prototype &prototype)
{
    return types_taken_by(prototype) + (changes(prototype.kind) ? " by reference" : " by value");
}

std::string by_value_text(int32_t kind)
{
    return changes(kind) ? "accepted; the result is lost" : "accepted; there is no result";
}

// ---- The function that is meant --------------------------------------------------------------------------------

const Function &find_function(const std::vector<Function> &functions, const std::string &name)
{
    for (const Function &function : functions)
        if (function.name == name) return function;
    std::vector<std::string> names;
    for (const Function &function : functions)
        names.push_back(function.name);
    const std::string nearest = nearest_word(names, name);
    const std::string remedy = nearest.empty() ? "ka list shows what it has" : "did you mean \"" + nearest + "\"?";
    throw Refused("the module has no function \"" + name + "\"; " + remedy);
}

// ---- Arguments -------------------------------------------------------------------------------------------------

size_t used_prototypes(const Function &function)
{
    const auto is_vararg = [](const Prototype &prototype) { return wire::takes_all_further(prototype.kind); };
    const auto vararg = std::find_if(function.prototypes.begin(), function.prototypes.end(), is_vararg);
    const auto used = static_cast<size_t>(vararg - function.prototypes.begin());
    return vararg == function.prototypes.end() ? used : used + 1;
}

namespace {

bool ends_with_vararg(const Function &function)
{
    const size_t used = used_prototypes(function);
    return used > 0 && wire::takes_all_further(function.prototypes[used - 1].kind);
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
