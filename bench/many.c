/* SPDX-License-Identifier: MIT
 *
 * A module with as many functions as BENCH_FUNCTIONS says; "last" is the last of them. */
#include <ka/dll_module.h>
#include <stdio.h>
#include <stdlib.h>

enum { MOST = 10000, NAME_ROOM = 8 };

t_DLL_PROTO KaArgList[] = {{"arguments", KA_VARARG, 0}};
t_DLL_FUNC KaFuncList[MOST + 1];
static char names[MOST][NAME_ROOM];

void dll_setup(void)
{
    const char *wanted = getenv("BENCH_FUNCTIONS");
    const int count = wanted == NULL ? 1 : atoi(wanted);
    for (int i = 0; i < count && i < MOST; i++) {
        snprintf(names[i], NAME_ROOM, i + 1 == count ? "last" : "f%d", i);
        KaFuncList[i].name = names[i];
    }
}

int32_t KaCall(int32_t index, void **argv)
{
    (void)index;
    (void)argv;
    return 0;
}
