/* SPDX-License-Identifier: MIT
 *
 * The current-call state, the names of the argument kinds, and the two accessors by which a function learns about its
 * own call. */
#include "call.h"
#include "ka/dll_host.h"

extern "C" {
t_DLL_FUNC *KaFunc;
int32_t KaFunc_arg_cnt;
void *KaAv[DLL_MAX_ARGS];
int32_t KaCv[DLL_MAX_ARGS];

const t_KIND_NAME KaArgTypeNames[] = {
    {KA_VARARG, wire::kinds[KA_VARARG].name},
    {KA_INT_BY_VALUE, wire::kinds[KA_INT_BY_VALUE].name},
    {KA_INT_BY_REFERENCE, wire::kinds[KA_INT_BY_REFERENCE].name},
    {KA_INT_ARRAY, wire::kinds[KA_INT_ARRAY].name},
    {KA_REAL_BY_VALUE, wire::kinds[KA_REAL_BY_VALUE].name},
    {KA_REAL_BY_REFERENCE, wire::kinds[KA_REAL_BY_REFERENCE].name},
    {KA_REAL_ARRAY, wire::kinds[KA_REAL_ARRAY].name},
    {KA_ZSTRING, wire::kinds[KA_ZSTRING].name},
    {KA_STRING, wire::kinds[KA_STRING].name},
    {KA_STRING_ARRAY, wire::kinds[KA_STRING_ARRAY].name},
    {-1, "Unknown"},
};
}

t_DLL_FUNCINFO *KaFuncInfo(void)
{
    static t_DLL_FUNCINFO info;
    if (KaFunc == nullptr) return nullptr;
    info.name = KaFunc->name;
    info.argc = KaFunc_arg_cnt;
    return &info;
}

namespace {

/* The smallest position that x names, as a slot's pointer or as a number; -1 when there is none. */
int32_t position_of(uintptr_t x)
{
    for (int32_t i = 0; i < KaFunc_arg_cnt; i++) {
        if (reinterpret_cast<uintptr_t>(KaAv[i]) == x || static_cast<uintptr_t>(i) == x) return i;
    }
    return -1;
}

int32_t array_kind(int32_t kind)
{
    switch (kind) {
    case KA_INT_BY_REFERENCE:
        return KA_INT_ARRAY;
    case KA_REAL_BY_REFERENCE:
        return KA_REAL_ARRAY;
    case KA_STRING:
        return KA_STRING_ARRAY;
    default:
        return kind;
    }
}

/* The kind that a VarArg is for a value of this type; itself for a type that no kind has. */
int32_t kind_of_value(int32_t type)
{
    switch (type) {
    case DLL_INTEGER:
        return KA_INT_BY_REFERENCE;
    case DLL_REAL:
        return KA_REAL_BY_REFERENCE;
    case DLL_STRING:
        return KA_STRING;
    default:
        return KA_VARARG;
    }
}

} // namespace

t_DLL_ARGINFO *KaArgInfo(uintptr_t x)
{
    static t_DLL_ARGINFO info;
    const int32_t position = position_of(x);
    if (position < 0) return nullptr;
    const t_DLL_ARG arg = u_get_arg(position + 1);
    if (arg.type == DLL_NONE) return nullptr;
    const int32_t last = KaFunc->arg_cnt - 1;
    const t_DLL_PROTO *proto = prototype(position < last ? position : last);
    const int32_t kind = proto->type == KA_VARARG ? kind_of_value(arg.type) : proto->type;
    /* KEPT: for a VarArg of an unknown value type, type stays as the previous answer left it.
       Test: KaArgInfo.unknown_value_type_keeps_the_kind_of_the_previous_answer. */
    if (kind != KA_VARARG) info.type = arg.elcnt > 1 ? array_kind(kind) : kind;
    info.name = proto->name;
    info.elcnt = arg.elcnt;
    return &info;
}
