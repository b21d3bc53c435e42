/* SPDX-License-Identifier: MIT
 *
 * A module that is valid C and C++, built in many ways by linking.cpp. ASSIGNS: with hooks, and the start hook turns
 * the trace on. DEFINES: with hooks, and the trace is on from the start by a variable of the module's own. With
 * neither: no hooks, no trace. */
#include <unistd.h>

#include "ka/dll_host.h"
#include "ka/dll_module.h"

t_DLL_FUNC KaFuncList[] = {
    {"level", 0, 0, NULL},
    {NULL, 0, 0, NULL},
};

t_DLL_PROTO KaArgList[] = {
    {NULL, 0, 0},
};

int32_t KaCall(int32_t index, void **argv)
{
    (void)index;
    (void)argv;
    return 100 + dll_debug;
}

#ifdef DEFINES
int32_t dll_debug = 1;
#endif

#if defined ASSIGNS || defined DEFINES
void dll_setup(void)
{
    if (write(2, "setup\n", 6) < 0) return;
#ifdef ASSIGNS
    dll_debug = 1;
#endif
}

void dll_cleanup(void)
{
    if (write(2, "cleanup\n", 8) < 0) return;
}
#endif
