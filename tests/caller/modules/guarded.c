/* SPDX-License-Identifier: MIT
 *
 * A module whose memory may only be looked into by root. */
#include <stdlib.h>
#include <sys/prctl.h>

#include "ka/dll_module.h"

t_DLL_PROTO KaArgList[] = {{"number", KA_INT_BY_VALUE, 0}};
t_DLL_FUNC KaFuncList[] = {{"same", 0, 1, NULL}, {NULL, 0, 0, NULL}};

int32_t KaCall(int32_t index, void **argv)
{
    (void)index;
    return *(int32_t *)argv[0];
}

void dll_setup(void)
{
    if (prctl(PR_SET_DUMPABLE, 0) != 0) abort();
}
