/* SPDX-License-Identifier: MIT
 *
 * require "kahost" */
#include "kahost.h"

__attribute__((visibility("default"))) int luaopen_kahost(lua_State *L);

int luaopen_kahost(lua_State *L)
{
    static const luaL_Reg functions[] = {
        {"open", open_module}, {"read", read_tables},     {"ref", mark_ref}, {"text", mark_text},
        {"real", mark_real},   {"rounded", mark_rounded}, {NULL, NULL},
    };
    luaL_checkversion(L);
    make_error_type(L);
    make_tables_type(L);
    make_mark_type(L);
    make_call_type(L);
    make_module_type(L);
    luaL_newlib(L, functions);
    lua_pushstring(L, ka_version());
    lua_setfield(L, -2, "version");
    return 1;
}
