/* SPDX-License-Identifier: MIT
 *
 * A module's tables and functions in a library of their own. The program itself is empty. */
#include "ka/dll_module.h"

t_DLL_PROTO KaArgList[] = {{"text", KA_STRING, 0}};
t_DLL_FUNC KaFuncList[] = {{"from_a_library", 0, 1, NULL}, {NULL, 0, 0, NULL}};

int32_t KaCall(int32_t index, void **argv)
{
    (void)argv;
    return index;
}
