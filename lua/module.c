/* SPDX-License-Identifier: MIT
 *
 * A module that was opened: its functions are fields, its methods too; what has the name of a method is reached by
 * m.functions. */
#include <string.h>

#include "kahost.h"

static t_MODULE *check_module(lua_State *L, int index)
{
    return luaL_checkudata(L, index, MODULE_TYPE);
}

t_MODULE *check_open(lua_State *L, int index)
{
    t_MODULE *module = check_module(L, index);
    is_in_call(module); /* which may close it */
    if (!module->host) fail_class(L, KA_CLOSED, 0, "the module is closed");
    return module;
}

/* ---- Life ------------------------------------------------------------------------------------------------------ */

/* A process that cannot be ended is reported once: then the record is freed. */
void close_host(t_MODULE *module)
{
    if (!module->host) return;
    end_call(module);
    if (ka_close(module->host) != KA_DONE) ka_close(module->host);
    module->host = NULL;
}

/* While arguments are added or results are read only a finalizer can get here: the host is closed after the call. */
static int close_now(lua_State *L)
{
    t_MODULE *module = check_module(L, 1);
    if (is_in_call(module) && !module->sent)
        module->closing = true;
    else
        close_host(module);
    return 0;
}

static int fail_in_call(lua_State *L, const char *what)
{
    return fail_class(L, KA_ARGUMENT, 0, "%s while the module is in a call; cancel ends it", what);
}

static int close_method(lua_State *L)
{
    if (is_in_call(check_module(L, 1))) return fail_in_call(L, "close");
    return close_now(L);
}

/* Ends a call that waits for the answer of its call-back; true when there was one. */
static int cancel_method(lua_State *L)
{
    t_MODULE *module = check_open(L, 1);
    const bool waits = is_in_call(module) && module->sent;
    if (waits) end_call(module);
    lua_pushboolean(L, waits);
    return 1;
}

static int restart_method(lua_State *L)
{
    t_MODULE *module = check_open(L, 1);
    if (is_in_call(module)) return fail_in_call(L, "restart");
    if (ka_restart(module->host) != KA_DONE || !ka_host_tables(module->host)) return fail_host(L, module->host);
    return 0;
}

static int stderr_method(lua_State *L)
{
    t_MODULE *module = check_open(L, 1);
    const lua_Integer size = luaL_optinteger(L, 2, 65536);
    luaL_argcheck(L, size >= 0 && size <= INT32_MAX, 2, "a size");
    char *buffer = lua_newuserdatauv(L, (size_t)size + 1, 0);
    const bool is_busy = is_in_call(module);
    if (!module->host) return fail_class(L, KA_CLOSED, 0, "the module is closed");
    const int32_t length = !is_busy ? ka_error_output(module->host, buffer, (int32_t)size) : 0;
    lua_pushlstring(L, buffer, (size_t)length);
    return 1;
}

static const luaL_Reg methods[] = {
    {"close", close_method},
    {"cancel", cancel_method},
    {"restart", restart_method},
    {"stderr", stderr_method},
    {NULL, NULL},
};

/* ---- Fields ---------------------------------------------------------------------------------------------------- */

/* Empty for a value that is none; none has a zero byte. */
static const char *name_at(lua_State *L, int index)
{
    const char *name = lua_type(L, index) == LUA_TSTRING ? lua_tostring(L, index) : "";
    return strlen(name) == lua_rawlen(L, index) ? name : "";
}

static bool push_field(lua_State *L, const t_MODULE *module, const char *name)
{
    if (strcmp(name, "functions") == 0)
        lua_getiuservalue(L, 1, VALUE_FUNCTIONS);
    else if (strcmp(name, "callback") == 0)
        lua_getiuservalue(L, 1, VALUE_CALLBACK);
    else if (strcmp(name, "path") == 0)
        lua_getiuservalue(L, 1, VALUE_PATH);
    else if (strcmp(name, "deadline") == 0)
        lua_getiuservalue(L, 1, VALUE_DEADLINE);
    else if (strcmp(name, "trace") == 0)
        lua_getiuservalue(L, 1, VALUE_TRACE);
    else if (strcmp(name, "closed") == 0)
        lua_pushboolean(L, !module->host);
    else if (strcmp(name, "pid") == 0) {
        const int32_t pid = module->host ? ka_pid(module->host) : 0;
        if (pid == 0)
            lua_pushnil(L);
        else
            lua_pushinteger(L, pid);
    } else
        return false;
    return true;
}

static int index_module(lua_State *L)
{
    const t_MODULE *module = check_module(L, 1);
    if (lua_type(L, 2) == LUA_TSTRING) {
        lua_pushvalue(L, 2);
        if (lua_rawget(L, lua_upvalueindex(1)) != LUA_TNIL) return 1;
        if (push_field(L, module, name_at(L, 2))) return 1;
        lua_getiuservalue(L, 1, VALUE_FUNCTIONS);
        lua_pushvalue(L, 2);
        if (lua_rawget(L, -2) != LUA_TNIL) return 1;
    }
    return fail_class(L, KA_REFUSED, 0, "the module has no function \"%s\"", luaL_tolstring(L, 2, NULL));
}

static int set_field(lua_State *L)
{
    t_MODULE *module = check_open(L, 1);
    const char *name = name_at(L, 2);
    lua_settop(L, 3);
    if (strcmp(name, "callback") == 0) {
        lua_setiuservalue(L, 1, VALUE_CALLBACK);
    } else if (strcmp(name, "deadline") == 0) {
        if (ka_set_deadline(module->host, milliseconds(L, 3, name, false)) != KA_DONE)
            return fail_host(L, module->host);
        lua_setiuservalue(L, 1, VALUE_DEADLINE);
    } else if (strcmp(name, "trace") == 0) {
        if (ka_set_trace(module->host, whole_number(L, 3, name)) != KA_DONE) return fail_host(L, module->host);
        lua_setiuservalue(L, 1, VALUE_TRACE);
    } else {
        return fail_class(L, KA_ARGUMENT, 0, "the field %s cannot be set", luaL_tolstring(L, 2, NULL));
    }
    return 0;
}

static int module_text(lua_State *L)
{
    const t_MODULE *module = check_module(L, 1);
    lua_getiuservalue(L, 1, VALUE_PATH);
    const int32_t pid = module->host ? ka_pid(module->host) : 0;
    if (!module->host)
        lua_pushfstring(L, "%s: %s, closed", MODULE_TYPE, lua_tostring(L, -1));
    else if (pid == 0)
        lua_pushfstring(L, "%s: %s, ended", MODULE_TYPE, lua_tostring(L, -1));
    else
        lua_pushfstring(L, "%s: %s, process %d", MODULE_TYPE, lua_tostring(L, -1), (int)pid);
    return 1;
}

/* ---- kahost.open ----------------------------------------------------------------------------------------------- */

/* Ready when it returns: the tables are read of the process. */
int open_module(lua_State *L)
{
    size_t length = 0;
    const char *path = luaL_checklstring(L, 1, &length);
    luaL_argcheck(L, strlen(path) == length, 1, "a path without a zero byte");
    lua_settop(L, 2);
    t_MODULE *module = lua_newuserdatauv(L, sizeof *module, VALUES);
    *module = (t_MODULE){0};
    luaL_setmetatable(L, MODULE_TYPE);
    const int at = lua_gettop(L);
    lua_pushvalue(L, 1);
    lua_setiuservalue(L, at, VALUE_PATH);
    ka_options options;
    read_options(L, 2, &options, module);
    lua_pushnumber(L, options.deadline_ms / 1000.0);
    lua_setiuservalue(L, at, VALUE_DEADLINE);
    lua_pushinteger(L, options.trace_level);
    lua_setiuservalue(L, at, VALUE_TRACE);
    int32_t status = ka_open(&module->host, path, &options);
    const ka_tables *tables = status == KA_DONE ? ka_host_tables(module->host) : NULL;
    if (!tables) {
        push_host_error(L, module->host);
        close_host(module);
        return lua_error(L);
    }
    push_functions(L, at, tables);
    lua_setiuservalue(L, at, VALUE_FUNCTIONS);
    lua_settop(L, at);
    return 1;
}

void make_module_type(lua_State *L)
{
    static const luaL_Reg meta[] = {{"__gc", close_now},
                                    {"__close", close_now},
                                    {"__newindex", set_field},
                                    {"__tostring", module_text},
                                    {NULL, NULL}};
    luaL_newmetatable(L, MODULE_TYPE);
    luaL_setfuncs(L, meta, 0);
    luaL_newlib(L, methods);
    lua_pushcclosure(L, index_module, 1);
    lua_setfield(L, -2, "__index");
    lua_pop(L, 1);
}
