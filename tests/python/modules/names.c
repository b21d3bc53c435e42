/* SPDX-License-Identifier: MIT
 *
 * Functions and arguments with names that are hard for a caller; each function gives back its number. With
 * WRONG_TABLES also functions whose tables are wrong. */
#include "ka/dll_module.h"

/* clang-format off */
t_DLL_PROTO KaArgList[] = {
    {"number", KA_INT_BY_REFERENCE, 0},
    /* 1 */
    {"class", KA_INT_BY_VALUE, 0}, {"a b", KA_INT_BY_VALUE, 0},          {"x", KA_INT_BY_VALUE, 0},
    {"x", KA_INT_BY_VALUE, 0},     {NULL, KA_INT_BY_VALUE, 0},           {"", KA_INT_BY_VALUE, 0},
    {"1st", KA_INT_BY_VALUE, 0},   {"\xe9t\xe9", KA_INT_BY_VALUE, 0},    {"_under", KA_INT_BY_REFERENCE, 0},
    {"self", KA_INT_BY_VALUE, 0},  {"argument_5", KA_INT_BY_VALUE, 0},   {"number", KA_INT_BY_REFERENCE, 0},
    /* 13 */
    {"kind", 77, 0},
    {"_replace", KA_INT_BY_REFERENCE, 0}, {"count", KA_INT_BY_REFERENCE, 0}, {"number", KA_INT_BY_REFERENCE, 0},
};

t_DLL_FUNC KaFuncList[] = {
    {"close", 0, 1, NULL},    {"class", 0, 1, NULL}, {"a b", 0, 1, NULL},        {"\xe9t\xe9", 0, 1, NULL},
    {"_x", 0, 1, NULL},       {"twice", 0, 1, NULL}, {"twice", 0, 1, NULL},      {"__init__", 0, 1, NULL},
    {"callback", 0, 1, NULL}, {"", 0, 1, NULL},      {"strange", 1, 12, NULL},   {"fields", 14, 3, NULL},
#ifdef WRONG_TABLES
    {"wrong_kind", 13, 1, NULL}, {"wrong_count", 0, -3, NULL}, {"wrong_index", 0x1000000, 1, NULL}, {"too_many", 0, 100000, NULL},
#endif
    {NULL, 0, 0, NULL},
};
/* clang-format on */

int32_t KaCall(int32_t index, void **argv)
{
    const int32_t place = index == 10 ? 11 : index == 11 ? 2 : 0;
    *(int32_t *)argv[place] = index;
    return 0;
}
