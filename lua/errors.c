/* SPDX-License-Identifier: MIT
 *
 * Errors as tables: class, text, retry, argument, signal, report and more, with __tostring. */
#include <stdarg.h>

#include "kahost.h"

static void push_empty(lua_State *L, int32_t error_class, int32_t retry)
{
    static const char *const words[] = {"no", "yes", "unsure"};
    lua_createtable(L, 0, 8);
    luaL_setmetatable(L, ERROR_TYPE);
    lua_pushstring(L, ka_error_name(error_class));
    lua_setfield(L, -2, "class");
    lua_pushstring(L, words[retry]);
    lua_setfield(L, -2, "retry");
}

static void set_number(lua_State *L, const char *field, lua_Integer value, lua_Integer none)
{
    if (value == none) return;
    lua_pushinteger(L, value);
    lua_setfield(L, -2, field);
}

int fail_class(lua_State *L, int32_t error_class, lua_Integer argument, const char *format, ...)
{
    va_list values;
    push_empty(L, error_class, KA_RETRY_NO);
    set_number(L, "argument", argument, 0);
    va_start(values, format);
    lua_pushvfstring(L, format, values);
    va_end(values);
    lua_setfield(L, -2, "text");
    return lua_error(L);
}

/* Copied first: an allocation may run a finalizer, which may use the host. */
void push_host_error(lua_State *L, ka_host *host)
{
    const ka_error error = *ka_last_error(host);
    const char *report = host ? ka_report_text(host) : NULL;
    lua_pushstring(L, report); /* nil for none */
    push_empty(L, error.error_class, error.retry);
    lua_insert(L, -2);
    lua_setfield(L, -2, "report");
    lua_pushstring(L, error.message[0] ? error.message : ka_error_name(error.error_class));
    lua_setfield(L, -2, "text");
    set_number(L, "argument", error.argument, 0);
    set_number(L, "signal", error.signal, 0);
    set_number(L, "exit_status", error.exit_status, -1);
    set_number(L, "errno", error.sys_errno, 0);
    set_number(L, "code", error.return_code, 0);
    set_number(L, "needed", error.needed_bytes, 0);
}

int fail_host(lua_State *L, ka_host *host)
{
    push_host_error(L, host);
    return lua_error(L);
}

static int error_text(lua_State *L)
{
    lua_getfield(L, 1, "text");
    return 1;
}

void make_error_type(lua_State *L)
{
    luaL_newmetatable(L, ERROR_TYPE);
    lua_pushcfunction(L, error_text);
    lua_setfield(L, -2, "__tostring");
    lua_pop(L, 1);
}
