/* SPDX-License-Identifier: MIT
 *
 * The options of kahost.open. A field that is none of them is a mistake. */
#include <string.h>

#include "kahost.h"

int32_t whole_number(lua_State *L, int index, const char *name)
{
    int32_t value = 0;
    if (!to_int32(L, index, &value))
        fail_class(L, KA_ARGUMENT, 0, "%s is %s; it is an integer of 32 bits", name, luaL_tolstring(L, index, NULL));
    return value;
}

int32_t milliseconds(lua_State *L, int index, const char *name, bool zero)
{
    const lua_Number seconds = lua_type(L, index) == LUA_TNUMBER ? lua_tonumber(L, index) : -1;
    const bool fits = seconds >= 0 && seconds <= 2147483 && (zero || seconds * 1000 >= 1);
    if (!fits)
        fail_class(L, KA_ARGUMENT, 0, "%s is %s; it is a number of seconds", name, luaL_tolstring(L, index, NULL));
    return fits ? (int32_t)(seconds * 1000 + 0.5) : 0;
}

static int32_t microseconds(lua_State *L, int index, const char *name)
{
    const lua_Number seconds = lua_type(L, index) == LUA_TNUMBER ? lua_tonumber(L, index) : -1;
    const bool fits = seconds >= 0 && seconds <= 1;
    if (!fits)
        fail_class(L, KA_ARGUMENT, 0, "%s is %s; it is a number of seconds", name, luaL_tolstring(L, index, NULL));
    return fits ? (int32_t)(seconds * 1e6 + 0.5) : 0;
}

static int32_t one_of(lua_State *L, const char *name, const char *const words[], const int32_t values[])
{
    const bool is_word = lua_type(L, -1) == LUA_TSTRING && strlen(lua_tostring(L, -1)) == lua_rawlen(L, -1);
    const char *given = is_word ? lua_tostring(L, -1) : "";
    for (int i = 0; words[i]; i++)
        if (strcmp(words[i], given) == 0) return values[i];
    luaL_Buffer list;
    luaL_tolstring(L, -1, NULL);
    luaL_buffinit(L, &list);
    for (int i = 0; words[i]; i++) {
        luaL_addstring(&list, i > 0 ? ", " : "");
        luaL_addstring(&list, words[i]);
    }
    luaL_pushresult(&list);
    return fail_class(L, KA_ARGUMENT, 0, "%s is %s; it is one of %s", name, lua_tostring(L, -2), lua_tostring(L, -1));
}

/* "NAME=value" for each pair, as strings that the table keeps in its list; the array goes on the stack. */
static const char *const *environment(lua_State *L)
{
    if (!lua_istable(L, -1)) fail_class(L, KA_ARGUMENT, 0, "env is %s; it is a table", luaL_tolstring(L, -1, NULL));
    const int given = lua_gettop(L);
    lua_newtable(L);
    lua_Integer count = 0;
    for (lua_pushnil(L); lua_next(L, given); lua_pop(L, 1)) {
        if (lua_type(L, -2) != LUA_TSTRING || lua_type(L, -1) != LUA_TSTRING)
            fail_class(L, KA_ARGUMENT, 0, "env has a %s as %s; names and values are strings", luaL_typename(L, -1),
                       luaL_typename(L, -2));
        if (strlen(lua_tostring(L, -2)) != lua_rawlen(L, -2) || strlen(lua_tostring(L, -1)) != lua_rawlen(L, -1))
            fail_class(L, KA_ARGUMENT, 0, "env: %s or its value has a zero byte", lua_tostring(L, -2));
        if (!lua_tostring(L, -2)[0] || strchr(lua_tostring(L, -2), '='))
            fail_class(L, KA_ARGUMENT, 0, "env: \"%s\" is no name of a variable", lua_tostring(L, -2));
        lua_pushfstring(L, "%s=%s", lua_tostring(L, -2), lua_tostring(L, -1));
        lua_rawseti(L, given + 1, ++count);
    }
    const char **array = lua_newuserdatauv(L, ((size_t)count + 1) * sizeof *array, 1);
    for (lua_Integer i = 0; i < count; i++) {
        lua_rawgeti(L, given + 1, i + 1);
        array[i] = lua_tostring(L, -1); /* the list keeps it */
        lua_pop(L, 1);
    }
    array[count] = NULL;
    return array;
}

static const char *plain_text(lua_State *L, const char *name)
{
    const char *text = lua_type(L, -1) == LUA_TSTRING ? lua_tostring(L, -1) : NULL;
    if (!text || strlen(text) != lua_rawlen(L, -1))
        fail_class(L, KA_ARGUMENT, 0, "%s is %s; it is a string without a zero byte", name,
                   luaL_tolstring(L, -1, NULL));
    return text;
}

static bool yes_or_no(lua_State *L, const char *name)
{
    if (!lua_isboolean(L, -1))
        fail_class(L, KA_ARGUMENT, 0, "%s is %s; it is a boolean", name, luaL_tolstring(L, -1, NULL));
    return lua_toboolean(L, -1);
}

static void take_pause(lua_State *L, ka_options *options)
{
    if (!lua_istable(L, -1) || lua_rawlen(L, -1) != 2)
        fail_class(L, KA_ARGUMENT, 0, "restart_pause is %s; it is a list of two numbers",
                   luaL_tolstring(L, -1, NULL));
    lua_rawgeti(L, -1, 1);
    options->restart_pause_ms = milliseconds(L, -1, "restart_pause", true);
    lua_rawgeti(L, -2, 2);
    options->restart_pause_max_ms = milliseconds(L, -1, "restart_pause", true);
    lua_pop(L, 2);
}

static void take_callback(lua_State *L, int module_index)
{
    if (lua_isnil(L, -1)) return;
    lua_pushvalue(L, -1);
    lua_setiuservalue(L, module_index, VALUE_CALLBACK);
}

/* The value of the option is at the top of the stack. More may lie there afterwards, and stays. */
static void take_option(lua_State *L, const char *name, ka_options *options, t_MODULE *module, int module_index)
{
    static const char *const restarts[] = {"never", "next call", "at once", NULL};
    static const int32_t restart_values[] = {KA_RESTART_NEVER, KA_RESTART_NEXT_CALL, KA_RESTART_AT_ONCE};
    static const char *const outputs[] = {"ring", "inherit", NULL};
    static const int32_t output_values[] = {KA_STDERR_RING, KA_STDERR_INHERIT};
    static const char *const transports[] = {"signals", "fast", "plain", NULL};
    static const int32_t transport_values[] = {KA_TRANSPORT_SIGNALS, KA_TRANSPORT_FAST, KA_TRANSPORT_PLAIN};
#define IS(word) (strcmp(name, word) == 0)
    if (IS("deadline"))
        options->deadline_ms = milliseconds(L, -1, name, false);
    else if (IS("grace"))
        options->grace_ms = milliseconds(L, -1, name, true);
    else if (IS("callback"))
        take_callback(L, module_index);
    else if (IS("restart"))
        options->restart = one_of(L, name, restarts, restart_values);
    else if (IS("restart_pause"))
        take_pause(L, options);
    else if (IS("segment"))
        options->segment_bytes = whole_number(L, -1, name);
    else if (IS("segment_max"))
        options->segment_max = whole_number(L, -1, name);
    else if (IS("scratch"))
        options->scratch_bytes = whole_number(L, -1, name);
    else if (IS("stderr"))
        options->error_output = one_of(L, name, outputs, output_values);
    else if (IS("ring"))
        options->ring_bytes = whole_number(L, -1, name);
    else if (IS("trace"))
        options->trace_level = whole_number(L, -1, name);
    else if (IS("env"))
        options->environment = environment(L);
    else if (IS("cwd"))
        options->directory = plain_text(L, name);
    else if (IS("transport"))
        options->transport = one_of(L, name, transports, transport_values);
    else if (IS("spin"))
        options->spin_us = microseconds(L, -1, name);
    else if (IS("room"))
        module->room = whole_number(L, -1, name);
    else if (IS("decimal"))
        module->decimal = yes_or_no(L, name);
    else
        fail_class(L, KA_ARGUMENT, 0, "%s is no option of kahost.open", name);
#undef IS
    if (module->room < 0) fail_class(L, KA_ARGUMENT, 0, "room is %d; it must not be below 0", (int)module->room);
}

void read_options(lua_State *L, int index, ka_options *options, t_MODULE *module)
{
    const int module_index = lua_gettop(L);
    ka_options_init(options, sizeof *options);
    options->error_output = KA_STDERR_RING;
    module->room = 256;
    if (lua_isnoneornil(L, index)) return;
    if (!lua_istable(L, index)) fail_class(L, KA_ARGUMENT, 2, "options are a table, not %s", luaL_typename(L, index));
    lua_newtable(L); /* keeps what the options point to */
    const int kept = lua_gettop(L);
    for (lua_pushnil(L); lua_next(L, index);) {
        const int key = lua_gettop(L) - 1;
        if (lua_type(L, key) != LUA_TSTRING)
            fail_class(L, KA_ARGUMENT, 0, "options have a %s as a name", luaL_typename(L, key));
        if (strlen(lua_tostring(L, key)) != lua_rawlen(L, key))
            fail_class(L, KA_ARGUMENT, 0, "%s and a zero byte is no option of kahost.open", lua_tostring(L, key));
        take_option(L, lua_tostring(L, key), options, module, module_index);
        while (lua_gettop(L) > key)
            lua_rawseti(L, kept, (lua_Integer)lua_rawlen(L, kept) + 1);
    }
}
