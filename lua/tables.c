/* SPDX-License-Identifier: MIT
 *
 * The tables of modules: kahost.read, and the functions of a module that was opened. */
#include <string.h>

#include "kahost.h"

#define TABLES_TYPE "kahost.tables"

static const ka_prototype *prototype_of(const ka_function *function, int32_t i)
{
    return &function->prototypes[i];
}

static int32_t count_of(const ka_function *function)
{
    const int32_t count = function->prototype_count;
    return count < 0 || !function->prototypes ? 0 : count < DLL_MAX_ARGC ? count : DLL_MAX_ARGC;
}

/* ---- Of a module that was opened ------------------------------------------------------------------------------- */

static void push_info(lua_State *L, const ka_function *function)
{
    t_FUNCTION *info = lua_newuserdatauv(L, sizeof *info, 2);
    info->count = count_of(function);
    lua_pushstring(L, function->name);
    lua_setiuservalue(L, -2, VALUE_NAME);
    lua_createtable(L, info->count, 0);
    for (int32_t i = 0; i < info->count; i++) {
        const ka_prototype *prototype = prototype_of(function, i);
        info->kinds[i] = prototype->kind;
        lua_pushstring(L, prototype->name ? prototype->name : "");
        lua_rawseti(L, -2, i + 1);
    }
    lua_setiuservalue(L, -2, VALUE_ARGUMENTS);
}

/* A table of them by name. Of two with one name the first is called. */
void push_functions(lua_State *L, int module_index, const ka_tables *tables)
{
    lua_createtable(L, 0, tables->function_count);
    for (int32_t i = tables->function_count - 1; i >= 0; i--) {
        const ka_function *function = &tables->functions[i];
        if (!function->name) continue;
        push_info(L, function);
        push_function(L, module_index);
        lua_setfield(L, -2, function->name);
    }
}

/* ---- Of a file ------------------------------------------------------------------------------------------------- */

static int free_tables(lua_State *L)
{
    ka_tables **tables = luaL_checkudata(L, 1, TABLES_TYPE);
    ka_free_tables(*tables);
    *tables = NULL;
    return 0;
}

static void set_text(lua_State *L, const char *field, const char *text)
{
    if (!text) return;
    lua_pushstring(L, text);
    lua_setfield(L, -2, field);
}

static void push_prototype(lua_State *L, const ka_tables *tables, const ka_function *function, int32_t i)
{
    const ka_prototype *prototype = prototype_of(function, i);
    lua_createtable(L, 0, 6);
    set_text(L, "name", prototype->name);
    set_text(L, "kind", ka_kind_name(prototype->kind));
    set_text(L, "takes", ka_kind_takes(prototype->kind));
    set_text(L, "about", ka_doc(tables, function, i + 1));
    lua_pushboolean(L, ka_kind_gives_back(prototype->kind));
    lua_setfield(L, -2, "gives_back");
    lua_pushinteger(L, prototype->min_elements);
    lua_setfield(L, -2, "min_elements");
}

/* kahost.read(path): a list of functions, each a list of its arguments with a name. */
int read_tables(lua_State *L)
{
    char why[256] = "";
    const char *path = luaL_checkstring(L, 1);
    luaL_argcheck(L, strlen(path) == lua_rawlen(L, 1), 1, "a path without a zero byte");
    ka_tables **tables = lua_newuserdatauv(L, sizeof *tables, 0);
    *tables = NULL;
    luaL_setmetatable(L, TABLES_TYPE);
    lua_toclose(L, -1);
    *tables = ka_read_tables(path, why, sizeof why);
    if (!*tables) return fail_class(L, KA_ARGUMENT, 1, "%s: %s", path, why);
    lua_createtable(L, (*tables)->function_count, 1);
    for (int32_t i = 0; i < (*tables)->function_count; i++) {
        const ka_function *function = &(*tables)->functions[i];
        lua_createtable(L, count_of(function), 2);
        set_text(L, "name", function->name);
        set_text(L, "about", ka_doc(*tables, function, 0));
        for (int32_t k = 0; k < count_of(function); k++) {
            push_prototype(L, *tables, function, k);
            lua_rawseti(L, -2, k + 1);
        }
        lua_rawseti(L, -2, i + 1);
    }
    lua_pushboolean(L, (*tables)->filled_at_start);
    lua_setfield(L, -2, "filled_at_start");
    return 1;
}

void make_tables_type(lua_State *L)
{
    luaL_newmetatable(L, TABLES_TYPE);
    lua_pushcfunction(L, free_tables);
    lua_setfield(L, -2, "__gc");
    lua_pushcfunction(L, free_tables);
    lua_setfield(L, -2, "__close");
    lua_pop(L, 1);
}
