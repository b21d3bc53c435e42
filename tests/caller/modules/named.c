/* SPDX-License-Identifier: MIT
 *
 * A module whose function names are variables that it exports, linked as a shared library that can be run: the loader
 * looks for each by its name, since another library could have taken its place. */
#include "ka/dll_module.h"

#ifdef __LP64__
const char loader[] __attribute__((section(".interp"), used)) = "/lib64/ld-linux-x86-64.so.2";
#else
const char loader[] __attribute__((section(".interp"), used)) = "/lib/ld-linux.so.2";
#endif

KA_API extern const char both_names[];
KA_API extern const char number_name[];
const char both_names[] = "same\0twice";
const char number_name[] = "number";

t_DLL_PROTO KaArgList[] = {{number_name, KA_INT_BY_VALUE, 0}};
t_DLL_FUNC KaFuncList[] = {{both_names, 0, 1, NULL}, {both_names + 5, 0, 1, NULL}, {NULL, 0, 0, NULL}};

int32_t KaCall(int32_t index, void **argv)
{
    return (index + 1) * *(int32_t *)argv[0];
}
