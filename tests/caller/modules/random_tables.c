/* SPDX-License-Identifier: MIT
 *
 * A module whose tables are read at start from the file that KA_TEST_TABLES names: the number of functions and of
 * prototypes; then of each function name, first prototype, number of prototypes; of each prototype kind and least
 * number of elements. After them come zeros. Every function returns 424000 + its position. */
#include <stdio.h>
#include <stdlib.h>

#include "ka/dll_module.h"

enum { FUNCTIONS = 200, PROTOTYPES = 400, BEYOND = 100 };

t_DLL_FUNC KaFuncList[FUNCTIONS + 1];
t_DLL_PROTO KaArgList[PROTOTYPES + BEYOND];

static char names[FUNCTIONS][32];

static int read_tables(FILE *file)
{
    int functions;
    int prototypes;
    if (fscanf(file, "%d %d", &functions, &prototypes) != 2 || functions > FUNCTIONS || prototypes > PROTOTYPES)
        return 0;
    for (int i = 0; i < functions; i++) {
        if (fscanf(file, "%31s %d %d", names[i], &KaFuncList[i].arg_idx, &KaFuncList[i].arg_cnt) != 3) return 0;
        KaFuncList[i].name = names[i];
    }
    for (int i = 0; i < prototypes; i++) {
        if (fscanf(file, "%d %d", &KaArgList[i].type, &KaArgList[i].min_elcnt) != 2) return 0;
        KaArgList[i].name = i % 5 == 0 ? NULL : "p";
    }
    return 1;
}

void dll_setup(void)
{
    const char *path = getenv("KA_TEST_TABLES");
    FILE *file = path ? fopen(path, "r") : NULL;
    if (!file || !read_tables(file)) abort();
    fclose(file);
}

int32_t KaCall(int32_t index, void **argv)
{
    (void)argv;
    return 424000 + index;
}
