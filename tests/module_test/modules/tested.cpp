// SPDX-License-Identifier: MIT
//
// Functions that use what the call host offers: the hooks, call-backs, the scratch area, what is known of a call.
#include <ka/module.hpp>

#include <cfenv>
#include <cstdio>
#include <cstdlib>

#include "module_test/modules/tested.h"

std::string hooks_that_ran;
bool calls_back_in_setup;
bool prints_its_end;

namespace {

void set_up()
{
    hooks_that_ran += ka::scratch<std::int32_t>() != nullptr ? "up " : "up without a block ";
    if (calls_back_in_setup) ka::callback(1);
}

bool kept_is_destroyed;
void remember()
{
    static const struct Kept {
        Kept() = default;
        ~Kept() { kept_is_destroyed = true; }
    } kept;
}
void clean_up()
{
    hooks_that_ran += "down ";
    if (prints_its_end)
        std::fprintf(stderr, "%s %s\n", kept_is_destroyed ? "too late for" : "after", KaFuncInfo()->name);
}

std::int32_t add(std::int32_t a, std::int32_t b)
{
    return a + b;
}
void scale(ka::array<double, 2> values, double factor)
{
    for (double &x : values)
        x *= factor;
}
void twice(ka::array<std::int32_t> values)
{
    for (ka::integer &x : values)
        x *= 2;
}
std::string greet(std::string_view name)
{
    return "hello, " + std::string(name);
}
ka::code copy(std::string_view from, ka::string to)
{
    to = from;
    to += "!";
    return ka::ok;
}
void shout(ka::array<ka::string> words)
{
    for (ka::string word : words)
        word += "!";
}
ka::decimal interest(const ka::decimal &amount, ka::decimal rate)
{
    return ka::round(amount * rate / 100, 2);
}
void halve(ka::array<ka::decimal> amounts)
{
    for (ka::decimal &each : amounts)
        each = each / 2;
}

std::int32_t lengths(ka::array<std::string_view, 0> words)
{
    std::int32_t sum = 0;
    for (std::string_view word : words)
        sum += static_cast<std::int32_t>(word.size());
    return sum;
}

// Each argument as its kind, its name, its elements and how it lies in the block.
void describe(ka::string text, ka::args rest)
{
    text.clear();
    for (std::int32_t n = 1; n <= static_cast<std::int32_t>(rest.size()); n++) {
        const t_DLL_ARGINFO info = *KaArgInfo(static_cast<std::uintptr_t>(n));
        const t_DLL_ARG passed = u_get_arg(n + 1);
        const auto place = reinterpret_cast<std::uintptr_t>(passed.ptr) % 8;
        text += std::to_string(info.type) + info.name + std::to_string(info.elcnt) + "@" + std::to_string(place) +
                "/" + std::to_string(passed.elsz) + (passed.ref != 0 ? "r " : " ");
    }
}

std::int32_t ask(std::int32_t question)
{
    return ka::callback(question) + ka::callback(question + 1);
}
std::int32_t keep(std::int32_t number)
{
    auto *const kept = ka::scratch<std::int32_t>();
    return kept != nullptr ? *kept += number : -1;
}
ka::code fail(std::int32_t code)
{
    throw ka::failure(code, "as it was told");
}
ka::code leave_arithmetic()
{
    const bool as_usual = std::fegetround() == FE_TONEAREST;
    std::fesetround(FE_UPWARD);
    volatile long double quotient = 0;
    quotient = 1 / quotient;
    ka::callback(0);
    return as_usual && std::fegetround() == FE_UPWARD ? ka::ok : ka::own<1>;
}
void end()
{
    std::abort();
}
void quit()
{
    std::exit(3);
}

} // namespace

KA_ON_SETUP(set_up)
KA_ON_CLEANUP(clean_up)
KA_MODULE(KA_FN(add, "a", "b"), KA_FN(scale, "values", "factor"), KA_FN(twice, "values"), KA_FN(greet, "name"),
          KA_FN(copy, "from", "to"), KA_FN(shout, "words"), KA_FN(interest, "amount", "rate"),
          KA_FN(halve, "amounts"), KA_FN(describe, "text", "rest"), KA_FN(lengths, "words"), KA_FN(ask, "question"),
          KA_FN(keep, "number"), KA_FN(fail, "code"), KA_FN(leave_arithmetic), KA_FN(end), KA_FN(quit),
          KA_FN(remember))
