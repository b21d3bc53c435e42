/* SPDX-License-Identifier: MIT
 *
 * A module that has the name of a function, and that of an argument, from a library. GUARDED: and whose memory may
 * only be looked into by root. */
#include <stdlib.h>
#include <sys/prctl.h>

#include "ka/dll_module.h"

extern const char borrowed_name[];

t_DLL_PROTO KaArgList[] = {{borrowed_name, KA_INT_BY_VALUE, 0}};
t_DLL_FUNC KaFuncList[] = {
    {"same", 0, 1, NULL}, {borrowed_name, 0, 1, NULL}, {"last", 0, 0, NULL}, {NULL, 0, 0, NULL}};

int32_t KaCall(int32_t index, void **argv)
{
    return index < 2 ? *(int32_t *)argv[0] : index;
}

#ifdef GUARDED
void dll_setup(void)
{
    if (prctl(PR_SET_DUMPABLE, 0) != 0) abort();
}
#endif
