// SPDX-License-Identifier: MIT
//
// The functions of the module driver, one row each with its prototypes, as the module and the tests see them. The row
// number is the function's index; its first prototype is at index row * row_prototypes of the flat table.
#ifndef TESTS_DRIVER_TABLES_H
#define TESTS_DRIVER_TABLES_H

#include <iterator>
#include <string_view>

#include "ka/dll_module.h"

namespace driver {

inline constexpr int row_prototypes = 6;
struct Function {
    const char *name;
    int32_t count; // of prototypes, as the module states it
    t_DLL_PROTO prototypes[row_prototypes];
};

// The minimum of a kind that has none is set to a value that no argument reaches.
// clang-format off
inline constexpr Function functions[] = {
    // name               prototypes: name, kind, least number of elements
    {"VarArg",          1, {{"values", 0, 99}}},
    {"IntByValue",      1, {{"int_value", 1, 99}}},
    {"IntByReference",  1, {{"int_reference", 2, 99}}},
    {"IntArray",        1, {{"int_array", 3, 0}}},
    {"RealByValue",     1, {{"real_value", 4, 99}}},
    {"RealByReference", 1, {{"real_reference", 5, 99}}},
    {"RealArray",       1, {{"real_array", 6, 0}}},
    {"zString",         1, {{"text", 7, 99}}},
    {"String",          1, {{"string", 8, 99}}},
    {"StringArray",     1, {{"string_array", 9, 0}}},

    {"IntArray3",       1, {{"int_array", 3, 3}}},
    {"RealArray3",      1, {{"real_array", 6, 3}}},
    {"StringArray3",    1, {{"string_array", 9, 3}}},
    {"IntArrayBelow",   1, {{"int_array", 3, -5}}},

    {"none",            0, {}},
    {"two",             2, {{"a", 1, 0}, {"b", 1, 0}}},
    {"three",           3, {{"a", 4, 0}, {"b", 4, 0}, {"c", 2, 0}}},
    {"some",            2, {{"first", 1, 0}, {"rest", 0, 0}}},
    {"behind",          2, {{"rest", 0, 0}, {"unused", 7, 0}}},
    {"between",         3, {{"first", 1, 0}, {"rest", 0, 0}, {"unused", 1, 0}}},
    {"arrays",          3, {{"a", 3, 0}, {"b", 6, 0}, {"c", 9, 0}}},
    {"references",      4, {{"a", 2, 0}, {"b", 5, 0}, {"c", 8, 0}, {"d", 5, 0}}},
    {"minus",          -2, {{"a", 1, 0}}},
    {"minus_var_arg",  -1, {{"rest", 0, 0}}},

    {"kind_10",         1, {{"strange", 10, 0}}},
    {"kind_12",         1, {{"strange", 12, 0}}},
    {"kind_-1",         1, {{"strange", -1, 0}}},
    {"kind_-3",         1, {{"strange", -3, 0}}},
    {"kind_largest",    1, {{"strange", INT32_MAX, 0}}},
    {"kind_smallest",   1, {{"strange", INT32_MIN, 0}}},
    {"late_12",         2, {{"a", 4, 0}, {"strange", 12, 0}}},

    {"twin",            0, {}},
    {"twin",            1, {{"a", 1, 0}}},
    {"",                0, {}},
    {"Case",            0, {}},

    // For random calls.
    {"mix_0",           6, {{"a", 1, 0}, {"b", 4, 0}, {"c", 7, 0}, {"d", 8, 0}, {"e", 5, 0}, {"f", 3, 1}}},
    {"mix_1",           6, {{"a", 9, 2}, {"b", 6, 1}, {"c", 2, 0}, {"d", 4, 0}, {"e", 1, 0}, {"f", 0, 0}}},
    {"mix_2",           5, {{"a", 5, 0}, {"b", 5, 0}, {"c", 8, 0}, {"d", 7, 0}, {"e", 0, 0}}},
    {"mix_3",           4, {{"a", 3, 2}, {"b", 9, 0}, {"c", 6, 2}, {"d", 4, 0}}},
    {nullptr,           0, {}},
};
// clang-format on

inline constexpr int32_t function_count = static_cast<int32_t>(std::size(functions)) - 1;

// The index of the first row of that name.
constexpr int32_t index_of(std::string_view name)
{
    int32_t index = 0;
    while (functions[index].name != nullptr && name != functions[index].name)
        index++;
    return index;
}

} // namespace driver

#endif
