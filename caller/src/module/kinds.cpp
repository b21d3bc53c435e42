/* SPDX-License-Identifier: MIT
 *
 * The kinds of arguments in words, for those who show tables. */
#include "wire/kinds.h"

#include "ka/caller.h"

const char *ka_kind_name(int32_t kind)
{
    return wire::is_kind(kind) ? wire::kinds[kind].name : "Unknown";
}

const char *ka_kind_takes(int32_t kind)
{
    return wire::is_kind(kind) ? wire::types_taken(wire::kinds[kind]) : "nothing";
}

int32_t ka_kind_gives_back(int32_t kind)
{
    return wire::is_kind(kind) && wire::kinds[kind].gives_back ? 1 : 0;
}
