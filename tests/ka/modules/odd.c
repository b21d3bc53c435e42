/* SPDX-License-Identifier: MIT
 *
 * A module whose tables are odd in every way that still lets it be listed. With ODD_LATE they are filled when the
 * module starts, and its file does not have them. */
#include <stddef.h>
#include <string.h>

#include "ka/dll_module.h"

enum { PROTOTYPES = 8, FUNCTIONS = 9 };

#ifdef ODD_LATE
t_DLL_PROTO KaArgList[PROTOTYPES];
t_DLL_FUNC KaFuncList[FUNCTIONS];
#define PROTOTYPE_TABLE static const t_DLL_PROTO prototypes[PROTOTYPES]
#define FUNCTION_TABLE static const t_DLL_FUNC functions[FUNCTIONS]
#else
#define PROTOTYPE_TABLE t_DLL_PROTO KaArgList[PROTOTYPES]
#define FUNCTION_TABLE t_DLL_FUNC KaFuncList[FUNCTIONS]
#endif

/* clang-format off */
PROTOTYPE_TABLE = {
    {"first", 12, 0}, {NULL, KA_INT_BY_VALUE, 0},
    {"any", KA_VARARG, 0}, {"behind", KA_INT_BY_VALUE, 0},                   /* 2 */
    {"red\x1b[31m", KA_ZSTRING, 0},                                          /* 4 */
    {"same", KA_INT_ARRAY, 3}, {"same", KA_INT_BY_REFERENCE, 9},             /* 5 */
    {"\xffname", KA_INT_BY_REFERENCE, -1},                                   /* 7 */
};

FUNCTION_TABLE = {
    {"no_kind", 0, 1, NULL},
    {"no_name", 1, 1, NULL},
    {"vararg", 2, 2, NULL},
    {"red\x1b[31m", 4, 1, NULL},
    {"twice", 5, 2, NULL},
    {"twice", 0, 0, NULL},
    {"negative", 0, -1, NULL},
    {"bytes", 7, 1, NULL},
    {NULL, 0, 0, NULL},
};
/* clang-format on */

#ifdef ODD_LATE
__attribute__((constructor)) static void fill(void)
{
    memcpy(KaArgList, prototypes, sizeof prototypes);
    memcpy(KaFuncList, functions, sizeof functions);
}
#endif

int32_t KaCall(int32_t index, void **argv)
{
    (void)index;
    (void)argv;
    return 0;
}
