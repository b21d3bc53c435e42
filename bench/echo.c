/* SPDX-License-Identifier: MIT
 *
 * A module that does nothing, so that only the cost of a call and of its conversions is measured. */
#include <ka/dll_host.h>
#include <ka/dll_module.h>
#include <unistd.h>

t_DLL_PROTO KaArgList[] = {{"arguments", KA_VARARG, 0},
                           {"values", KA_REAL_BY_VALUE, 0},
                           {"text", KA_ZSTRING, 0},
                           {"values", KA_INT_BY_VALUE, 0}};
t_DLL_FUNC KaFuncList[] = {{"nothing", 0, 0, NULL}, {"any", 0, 1, NULL},      {"doubles", 1, 1, NULL},
                           {"text", 2, 1, NULL},    {"integers", 3, 1, NULL}, {"ask", 0, 0, NULL},
                           {"hang", 0, 0, NULL},    {"agree", 0, 0, NULL},    {NULL, 0, 0, NULL}};

int32_t KaCall(int32_t index, void **argv)
{
    (void)argv;
    if (index == 6) pause();
    if (index == 5) return dll_callback(1) + 1;
    return index == 7 ? dll_callback(1) : 0;
}
