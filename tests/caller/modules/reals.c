/* SPDX-License-Identifier: MIT
 *
 * Functions that return the REAL they get as text, for every kind that takes one; and kinds that give it back. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "ka/dll_host.h"
#include "ka/dll_module.h"
#include "ka/kastring.h"
#include "ka/real.h"

static int32_t show_integer(void **argv)
{
    char text[40];
    snprintf(text, sizeof text, "%d", *(int32_t *)argv[0]);
    return str2KaStr(text, argv[1]);
}

static int32_t show_double(void **argv)
{
    char text[40];
    snprintf(text, sizeof text, "%.15g", *(double *)argv[0]);
    return str2KaStr(text, argv[1]);
}

static int32_t show_record(void **argv)
{
    t_DECIMAL record;
    char text[40];
    memcpy(&record, u_get_arg(1).ptr, sizeof record);
    return str2KaStr(m_gcvt(&record, 16, text), argv[1]);
}

/* The number comes a second time, as text. */
static int32_t store_double(void **argv)
{
    *(double *)argv[0] = strtod(argv[1], NULL);
    return 0;
}

static int32_t leave(void **argv)
{
    (void)argv;
    return 0;
}

/* clang-format off */
t_DLL_PROTO KaArgList[] = {
    {"x", KA_INT_BY_VALUE, 0},       {"text", KA_STRING, 0},
    {"x", KA_REAL_BY_VALUE, 0},      {"text", KA_STRING, 0},
    {"x", KA_REAL_BY_REFERENCE, 0},  {"text", KA_ZSTRING, 0},
    {"x", KA_REAL_ARRAY, 0},         {"text", KA_ZSTRING, 0},
    {"x", KA_VARARG, 0},
};

t_DLL_FUNC KaFuncList[] = {
    {"show_integer", 0, 2, NULL},
    {"show_double", 2, 2, NULL},
    {"show_record", 2, 2, NULL},
    {"store_reference", 4, 2, NULL},
    {"store_array", 6, 2, NULL},
    {"leave_reference", 4, 1, NULL},
    {"leave_array", 6, 1, NULL},
    {"leave_vararg", 8, 1, NULL},
    {NULL, 0, 0, NULL},
};
/* clang-format on */

int32_t KaCall(int32_t index, void **argv)
{
    static int32_t (*const bodies[])(void **) = {show_integer, show_double, show_record, store_double,
                                                 store_double, leave,       leave,       leave};
    return bodies[index](argv);
}
