/* SPDX-License-Identifier: MIT
 *
 * A module whose functions are in its file, and whose prototypes it fills as it starts. */
#include <ka/dll_host.h>
#include <ka/dll_module.h>

t_DLL_PROTO KaArgList[2];
t_DLL_FUNC KaFuncList[] = {{"none", 0, 0, NULL}, {"add", 0, 2, NULL}, {NULL, 0, 0, NULL}};

int32_t KaCall(int32_t index, void **argv)
{
    if (index == 1) *(int32_t *)argv[1] += *(int32_t *)argv[0];
    return 0;
}

void dll_setup(void)
{
    KaArgList[0] = (t_DLL_PROTO){"a", KA_INT_BY_VALUE, 0};
    KaArgList[1] = (t_DLL_PROTO){"sum", KA_INT_BY_REFERENCE, 0};
}
