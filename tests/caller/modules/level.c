/* SPDX-License-Identifier: MIT
 *
 * A module that mentions the trace level itself, so that at a fixed address the variable is in the module and no
 * longer in the library. */
#include "ka/dll_host.h"
#include "ka/dll_module.h"

t_DLL_PROTO KaArgList[] = {{"", KA_VARARG, 0}};
t_DLL_FUNC KaFuncList[] = {{"level", 0, 0, NULL}, {NULL, 0, 0, NULL}};

int32_t KaCall(int32_t index, void **argv)
{
    (void)index;
    (void)argv;
    return dll_debug;
}
