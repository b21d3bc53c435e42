// SPDX-License-Identifier: MIT
//
// A module whose functions change every value that they get, and return a number made of all that they saw. The same
// source is called in a host process and in the test's own.
#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "ka/dll_host.h"
#include "ka/dll_module.h"
#include "ka/kastring.h"

t_DLL_FUNC KaFuncList[] = {{"scalars", 0, 6, nullptr}, {"arrays", 6, 3, nullptr}, {"rest", 9, 2, nullptr},
                           {"nothing", 0, 0, nullptr}, {"any", 11, 1, nullptr},   {"asks", 12, 2, nullptr},
                           {nullptr, 0, 0, nullptr}};

t_DLL_PROTO KaArgList[] = {{"i", KA_INT_BY_VALUE, 0},
                           {"ir", KA_INT_BY_REFERENCE, 0},
                           {"r", KA_REAL_BY_VALUE, 0},
                           {"rr", KA_REAL_BY_REFERENCE, 0},
                           {"z", KA_ZSTRING, 0},
                           {"s", KA_STRING, 0},
                           {"is", KA_INT_ARRAY, 2},
                           {"rs", KA_REAL_ARRAY, 1},
                           {"ss", KA_STRING_ARRAY, 0},
                           {"first", KA_INT_BY_VALUE, 0},
                           {"rest", KA_VARARG, 0},
                           {"all", KA_VARARG, 0},
                           {"answer", KA_INT_BY_REFERENCE, 0},
                           {"more", KA_VARARG, 0}};

namespace {

std::uint32_t seen;

void see(const void *data, std::size_t size)
{
    const auto *bytes = static_cast<const unsigned char *>(data);
    for (std::size_t i = 0; i < size; i++)
        seen = (seen ^ bytes[i]) * 16777619u;
}

void see(std::int32_t number)
{
    see(&number, sizeof number);
}

void change_integers(void *values, std::int32_t count, std::int32_t elsz)
{
    for (std::int32_t k = 0; k < count; k++) {
        char *const at = static_cast<char *>(values) + k * elsz * 4;
        std::uint32_t number;
        std::memcpy(&number, at, sizeof number);
        see(&number, sizeof number);
        number = number * 3 + 1;
        std::memcpy(at, &number, sizeof number);
    }
}

void change_reals(double *values, std::int32_t count)
{
    for (std::int32_t k = 0; k < count; k++) {
        see(&values[k], sizeof values[k]);
        values[k] = k % 3 == 0 ? -values[k] : values[k] / 7;
    }
}

// Now and then to a length that is none.
void change_strings(KaStr *strings, std::int32_t count)
{
    for (std::int32_t k = 0; k < count; k++) {
        KaStr &s = strings[k];
        see(s.maxlen);
        see(s.data, static_cast<std::size_t>(s.len));
        if (s.len < s.maxlen) s.data[s.len++] = static_cast<char>('a' + seen % 26);
        if (seen % 11 == 0) s.len = 0;
        if (seen % 13 == 0) s.len = s.maxlen + 5;
        if (seen % 17 == 0) s.len = -1;
    }
}

// As the argument was converted for its kind.
void change(std::int32_t kind, const t_DLL_ARG &passed, void *value)
{
    const std::int32_t count = passed.elcnt > 0 ? passed.elcnt : 0;
    if (kind == KA_ZSTRING)
        see(value, std::strlen(static_cast<char *>(value)));
    else if (passed.type == DLL_STRING)
        change_strings(static_cast<KaStr *>(value), count);
    else if (kind >= KA_REAL_BY_VALUE)
        change_reals(static_cast<double *>(value), count);
    else
        change_integers(value, count, passed.type == DLL_INTEGER ? passed.elsz : 1);
}

} // namespace

std::int32_t KaCall(std::int32_t index, void **argv)
{
    seen = 2166136261u;
    see(index);
    const std::int32_t argc = KaFuncInfo()->argc;
    for (std::int32_t n = 0; n < argc; n++) {
        const t_DLL_ARGINFO info = *KaArgInfo(static_cast<std::uintptr_t>(n));
        const t_DLL_ARG passed = u_get_arg(n + 1);
        for (const std::int32_t number : {info.type, info.elcnt, passed.type, passed.ref, passed.maxlen, passed.elsz})
            see(number);
        see(info.name, std::strlen(info.name));
        change(info.type, passed, argv[n]);
        if (seen % 19 == 0) u_unref_arg(n + 1);
    }
    if (std::strcmp(KaFuncInfo()->name, "asks") == 0)
        for (int k = 0; k < 2; k++)
            see(dll_callback(static_cast<std::int32_t>(seen)));
    if (auto *const scratch = static_cast<std::uint32_t *>(dll_scratch(sizeof seen))) *scratch += seen;
    return static_cast<std::int32_t>(seen >> 1);
}
