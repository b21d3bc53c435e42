/* SPDX-License-Identifier: MIT
 *
 * Functions that show what they were passed, byte for byte as the block holds it; and that give back what no ordinary
 * function would. An argument is shown as five numbers, type, ref, maxlen, elsz and elcnt, and the bytes of its
 * elements (tests/python/block.py reads them). */
#include <string.h>

#include "ka/dll_host.h"
#include "ka/dll_module.h"
#include "ka/kastring.h"

static int32_t append(KaStr *to, const void *bytes, int32_t count)
{
    if (count > to->maxlen - to->len) return KASTR_NO_ROOM;
    memcpy(to->data + to->len, bytes, (size_t)count);
    to->len += count;
    return 0;
}

static int32_t show(int32_t number, KaStr *shown)
{
    const t_DLL_ARG arg = u_get_arg(number);
    const int32_t fields[] = {arg.type, arg.ref, arg.maxlen, arg.elsz, arg.elcnt};
    const int32_t code = append(shown, fields, (int32_t)sizeof fields);
    return code != 0 ? code : append(shown, arg.ptr, 4 * arg.elsz * arg.elcnt);
}

static int32_t show_first(void **argv)
{
    KaStr *shown = argv[1];
    shown->len = 0;
    return show(1, shown);
}

/* All but the first, which takes what is shown. */
static int32_t show_more(void **argv)
{
    KaStr *shown = argv[0];
    int32_t code = 0;
    shown->len = 0;
    for (int32_t i = 2; i <= KaFuncInfo()->argc && code == 0; i++)
        code = show(i, shown);
    return code;
}

/* Takes back the arguments whose bits are set in the first: bit 1 is argument 2. */
static int32_t withdraw(void **argv)
{
    for (int32_t i = 1; i < KaFuncInfo()->argc; i++)
        if (*(int32_t *)argv[0] >> i & 1) u_unref_arg(i + 1);
    return 0;
}

static int32_t leave(void **argv)
{
    (void)argv;
    return 0;
}

/* argv: REALs, as many others, records of 12 bytes. Gives the REALs those very records, null and impossible ones,
   too: what the host would write over them goes to the others. */
static int32_t put_records(void **argv)
{
    char *base = u_get_baseptr();
    const KaStr *records = argv[2];
    int32_t argc;
    if (records->len != 12 * KaArgInfo((uintptr_t)argv[0])->elcnt) return 1;
    memcpy(u_get_arg(1).ptr, records->data, (size_t)records->len);
    memcpy(&argc, base + offsetof(t_DLL_INFO32, argc), 4); /* in the other layout the half of an address */
    if (argc == u_get_argc())
        memcpy(base + offsetof(t_DLL_INFO32, args[1].ptr), base + offsetof(t_DLL_INFO32, args[2].ptr), 4);
    else
        memcpy(base + offsetof(t_DLL_INFO64, args[1].ptr), base + offsetof(t_DLL_INFO64, args[2].ptr), 4);
    return 0;
}

/* Bytes 0, 1, 2 and so on, as many as there is room for. */
static int32_t octets(void **argv)
{
    KaStr *text = argv[0];
    for (int32_t i = 0; i < text->maxlen; i++)
        text->data[i] = (char)i;
    text->len = text->maxlen;
    return 0;
}

static int32_t give_code(void **argv)
{
    return *(int32_t *)argv[0];
}

/* clang-format off */
t_DLL_PROTO KaArgList[] = {
    {"x", KA_INT_BY_VALUE, 0},      {"shown", KA_STRING, 0},
    {"x", KA_INT_BY_REFERENCE, 0},  {"shown", KA_STRING, 0},
    {"x", KA_INT_ARRAY, 0},         {"shown", KA_STRING, 0},
    {"x", KA_REAL_BY_VALUE, 0},     {"shown", KA_STRING, 0},
    {"x", KA_REAL_BY_REFERENCE, 0}, {"shown", KA_STRING, 0},
    {"x", KA_REAL_ARRAY, 0},        {"shown", KA_STRING, 0},
    {"x", KA_ZSTRING, 0},           {"shown", KA_STRING, 0},
    {"x", KA_STRING, 0},            {"shown", KA_STRING, 0},
    {"x", KA_STRING_ARRAY, 0},      {"shown", KA_STRING, 0},
    {"shown", KA_STRING, 0},        {"more", KA_VARARG, 0},
    {"which", KA_INT_BY_VALUE, 0},  {"i", KA_INT_BY_REFERENCE, 0}, {"r", KA_REAL_BY_REFERENCE, 0},
    {"s", KA_STRING, 0},            {"more", KA_VARARG, 0},
    {"x", KA_REAL_BY_REFERENCE, 0}, {"others", KA_REAL_BY_REFERENCE, 0}, {"records", KA_STRING, 0},
    {"x", KA_REAL_ARRAY, 0},        {"others", KA_REAL_ARRAY, 0},        {"records", KA_STRING, 0},
    {"values", KA_INT_ARRAY, 3},    {"reals", KA_REAL_ARRAY, 2},   {"words", KA_STRING_ARRAY, 1},
};

t_DLL_FUNC KaFuncList[] = {
    {"int_by_value", 0, 2, NULL},   {"int_by_reference", 2, 2, NULL},   {"int_array", 4, 2, NULL},
    {"real_by_value", 6, 2, NULL},  {"real_by_reference", 8, 2, NULL},  {"real_array", 10, 2, NULL},
    {"zstring", 12, 2, NULL},       {"string", 14, 2, NULL},            {"string_array", 16, 2, NULL},
    {"more", 18, 2, NULL},          {"withdraw", 20, 5, NULL},          {"put_real", 25, 3, NULL},
    {"put_reals", 28, 3, NULL},     {"octets", 1, 1, NULL},             {"give_code", 0, 1, NULL},
    {"at_least", 31, 3, NULL},      {"leave_more", 19, 1, NULL},        {NULL, 0, 0, NULL},
};
/* clang-format on */

int32_t KaCall(int32_t index, void **argv)
{
    static int32_t (*const bodies[])(void **) = {
        show_first, show_first, show_first,  show_first,  show_first, show_first, show_first, show_first, show_first,
        show_more,  withdraw,   put_records, put_records, octets,     give_code,  leave,      leave,
    };
    return bodies[index](argv);
}
