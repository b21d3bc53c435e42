/* SPDX-License-Identifier: MIT
 *
 * A module that shows the block as the host reads it, and one that scrambles it. */
#include <string.h>

#include "ka/dll_block.h"
#include "ka/dll_host.h"
#include "ka/dll_module.h"

/* argv: the number of an argument, room for its type, ref, offset, maxlen, elsz, elcnt. */
static int32_t show_descriptor(void **argv)
{
    const t_DLL_ARG arg = u_get_arg(*(int32_t *)argv[0]);
    const int32_t offset = (int32_t)((const char *)arg.ptr - (const char *)u_get_baseptr());
    const int32_t fields[] = {arg.type, arg.ref, offset, arg.maxlen, arg.elsz, arg.elcnt};
    memcpy(argv[1], fields, sizeof fields);
    return 0;
}

static int32_t show_argc(void **argv)
{
    (void)argv;
    return u_get_argc();
}

static uint32_t state = 1;

static void scramble_bytes(int32_t from, int32_t to)
{
    unsigned char *base = u_get_baseptr();
    for (int32_t i = from; i < to; i++) {
        state = state * 1664525 + 1013904223;
        base[i] = (unsigned char)(state >> 24);
    }
}

/* Everything before the values of either layout, but for the caller's process id, for a signal of the host to anyone
   else could do harm, and for retcode and cbval, by which a module speaks for the host. */
static int32_t scramble(void **argv)
{
    (void)argv;
    scramble_bytes(0, offsetof(t_DLL_INFO32, pid));
    scramble_bytes(offsetof(t_DLL_INFO32, base), offsetof(t_DLL_INFO32, retcode));
    scramble_bytes(offsetof(t_DLL_INFO64, shmsz), offsetof(t_DLL_INFO32, cbval));
    scramble_bytes(offsetof(t_DLL_INFO32, argc), offsetof(t_DLL_INFO64, cbval));
    scramble_bytes(offsetof(t_DLL_INFO64, argc), sizeof(t_DLL_INFO64));
    return 77;
}

/* These two as well: a false call-back, and a false end. */
static int32_t scramble_all(void **argv)
{
    (void)argv;
    scramble_bytes(0, offsetof(t_DLL_INFO32, pid));
    scramble_bytes(offsetof(t_DLL_INFO32, base), sizeof(t_DLL_INFO64));
    return 77;
}

t_DLL_PROTO KaArgList[] = {{"number", KA_INT_BY_VALUE, 0}, {"fields", KA_INT_ARRAY, 6}, {"others", KA_VARARG, 0}};
t_DLL_FUNC KaFuncList[] = {
    {"show_descriptor", 0, 3, NULL}, {"show_argc", 2, 1, NULL}, {"scramble", 0, 0, NULL},
    {"scramble_all", 0, 0, NULL},    {NULL, 0, 0, NULL},
};

int32_t KaCall(int32_t index, void **argv)
{
    static int32_t (*const functions[])(void **) = {show_descriptor, show_argc, scramble, scramble_all};
    return functions[index](argv);
}
