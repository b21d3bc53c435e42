/* SPDX-License-Identifier: MIT
 *
 * The smallest module: one function of three arguments. */
#include <ka/dll_module.h>

t_DLL_PROTO KaArgList[] = {{"a", KA_INT_BY_VALUE, 0}, {"b", KA_INT_BY_VALUE, 0}, {"sum", KA_INT_BY_REFERENCE, 0}};
t_DLL_FUNC KaFuncList[] = {{"add", 0, 3, NULL}, {NULL, 0, 0, NULL}};

int32_t KaCall(int32_t index, void **argv)
{
    (void)index;
    *(int32_t *)argv[2] = *(int32_t *)argv[0] + *(int32_t *)argv[1];
    return 0;
}
