/* SPDX-License-Identifier: MIT
 *
 * A module whose functions use every kind of conversion, and none of the host's functions: own_names.cpp links it
 * with functions of the module's own that have all their names. Its function any turns the trace on. */
#include <string.h>

#include "ka/dll_host.h"
#include "ka/dll_module.h"
#include "ka/kastring.h"

t_DLL_FUNC KaFuncList[] = {
    {"numbers", 0, 5, NULL},
    {"texts", 5, 2, NULL},
    {"any", 7, 1, NULL},
    {NULL, 0, 0, NULL},
};

t_DLL_PROTO KaArgList[] = {
    {"i", KA_INT_BY_VALUE, 0},
    {"is", KA_INT_ARRAY, 1},
    {"r", KA_REAL_BY_VALUE, 0},
    {"rs", KA_REAL_BY_REFERENCE, 0},
    {"sum", KA_REAL_BY_REFERENCE, 0},
    {"z", KA_ZSTRING, 0},
    {"s", KA_STRING, 0},
    {"all", KA_VARARG, 0},
};

static int32_t numbers(void **argv)
{
    double *const out = argv[3];
    *(double *)argv[4] = *(int32_t *)argv[0] + *(double *)argv[2];
    ((int32_t *)argv[1])[1]++;
    out[0] = 1e300; /* becomes the largest REAL */
    out[1] = 0;
    out[2] = -out[2];
    return 1;
}

static int32_t texts(void **argv)
{
    KaStr *const s = argv[1];
    memcpy(s->data, argv[0], 2);
    s->len = 2;
    return 2;
}

int32_t KaCall(int32_t index, void **argv)
{
    if (index == 0) return numbers(argv);
    if (index == 1) return texts(argv);
    dll_debug = 4;
    return 3;
}
