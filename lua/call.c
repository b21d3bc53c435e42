/* SPDX-License-Identifier: MIT
 *
 * A call, in steps: no frame of the library is below a call-back, so it may fail, and it may yield. What begins a
 * call is undone by a value that is to be closed, however the call is left: its end, an error, no memory, a closed
 * coroutine. One that ended by an error closes nothing, nor does one that is collected: so the value is known by its
 * coroutine, and has a finalizer. */
#include "kahost.h"

#define CALL_TYPE "kahost.call"

enum { SLICE_MS = 50 }; /* after which hooks are looked for */

/* On the stack while the call is under way: FAILED_AT is true once a call-back has failed, with ERROR_AT. */
enum { GUARD_AT = 1, FAILED_AT = 2, ERROR_AT = 3 };

typedef struct t_GUARD {
    t_MODULE *module; /* a value of the guard keeps it */
    lua_Integer call;
} t_GUARD;

/* One that was sent ends with its host. */
void end_call(t_MODULE *module)
{
    int32_t what = KA_WAITING;
    int32_t value = 0;
    if (module->sent) ka_cancel(module->host);
    while (module->sent && ka_wait(module->host, -1, &what, &value) == KA_DONE && what != KA_RETURNED)
        if (what == KA_CALLBACK && ka_answer(module->host, 0) != KA_DONE) break;
    module->sent = false;
    module->call = 0;
}

static void leave_call(t_MODULE *module)
{
    end_call(module);
    if (module->closing) close_host(module);
}

static int close_guard(lua_State *L)
{
    const t_GUARD *guard = luaL_checkudata(L, 1, CALL_TYPE);
    if (guard->call != 0 && guard->module->call == guard->call) leave_call(guard->module);
    return 0;
}

/* The call of a coroutine that ended by an error is over. */
bool is_in_call(t_MODULE *module)
{
    if (module->call != 0 && lua_status(module->caller) > LUA_YIELD) leave_call(module);
    return module->call != 0;
}

/* Below the arguments; the number of the call that begins. */
static lua_Integer push_guard(lua_State *L, t_MODULE *module)
{
    t_GUARD *guard = lua_newuserdatauv(L, sizeof *guard, 2);
    *guard = (t_GUARD){module, 0};
    lua_pushvalue(L, lua_upvalueindex(1));
    lua_setiuservalue(L, -2, 1);
    lua_pushthread(L);
    lua_setiuservalue(L, -2, 2);
    luaL_setmetatable(L, CALL_TYPE);
    lua_insert(L, GUARD_AT);
    lua_toclose(L, GUARD_AT);
    const bool is_busy = is_in_call(module);
    if (!module->host) fail_class(L, KA_CLOSED, 0, "the module is closed");
    if (is_busy) fail_class(L, KA_ARGUMENT, 0, "the module is in a call; a call-back of it has to return first");
    module->caller = L;
    guard->call = module->call = ++module->last_call;
    return guard->call;
}

/* ---- Call-backs ------------------------------------------------------------------------------------------------ */

static int fail_answer(lua_State *L)
{
    return fail_class(L, KA_ARGUMENT, 0, "the call-back gave %s; it is to give an integer of 32 bits",
                      luaL_tolstring(L, 1, NULL));
}

static void keep_error(lua_State *L)
{
    lua_copy(L, -1, ERROR_AT);
    lua_pushboolean(L, 1);
    lua_copy(L, -1, FAILED_AT);
}

/* What the call-back gave is on top, or its error. After an error the answer is 0, also to all that follow. */
static int32_t take_answer(lua_State *L, int status)
{
    int32_t answer = 0;
    if (status != LUA_OK && status != LUA_YIELD) {
        keep_error(L);
    } else if (!to_int32(L, -1, &answer)) {
        answer = 0;
        lua_pushcfunction(L, fail_answer);
        lua_insert(L, -2);
        lua_pcall(L, 1, 0, 0);
        keep_error(L);
    }
    lua_settop(L, ERROR_AT);
    return answer;
}

/* ---- The end --------------------------------------------------------------------------------------------------- */

static int fail_step(lua_State *L, t_MODULE *module)
{
    module->sent = false;
    if (!lua_toboolean(L, FAILED_AT)) return fail_host(L, module->host);
    lua_pushvalue(L, ERROR_AT);
    return lua_error(L);
}

static int finish(lua_State *L, t_MODULE *module, int32_t code)
{
    module->sent = false;
    if (lua_toboolean(L, FAILED_AT)) return fail_step(L, module);
    lua_pushinteger(L, code);
    return 1 + push_results(L, module);
}

/* ---- Steps ----------------------------------------------------------------------------------------------------- */

/* Lua's own way to be interrupted is a hook, which runs with the next line of Lua. */
static void run_hooks(lua_State *L)
{
    if (!lua_gethook(L)) return;
    lua_pushvalue(L, lua_upvalueindex(3));
    lua_call(L, 0, 0);
}

static int resumed(lua_State *L, int status, lua_KContext call);

static int go_on(lua_State *L, t_MODULE *module, lua_KContext call)
{
    for (;;) {
        int32_t what = KA_WAITING;
        int32_t value = 0;
        if (ka_wait(module->host, SLICE_MS, &what, &value) != KA_DONE) return fail_step(L, module);
        if (what == KA_RETURNED) return finish(L, module, value);
        if (what == KA_WAITING) run_hooks(L);
        if (module->call != call) return fail_class(L, KA_CANCELLED, 0, "the call was ended in a hook");
        if (what != KA_CALLBACK) continue;
        int32_t answer = 0;
        lua_getiuservalue(L, lua_upvalueindex(1), VALUE_CALLBACK);
        if (!lua_toboolean(L, FAILED_AT) && !lua_isnil(L, -1)) {
            lua_pushinteger(L, value);
            answer = take_answer(L, lua_pcallk(L, 1, 1, 0, call, resumed));
            if (module->call != call) return fail_class(L, KA_CANCELLED, 0, "the call was ended in its call-back");
        }
        lua_settop(L, ERROR_AT);
        if (ka_answer(module->host, answer) != KA_DONE) return fail_step(L, module);
    }
}

/* After a call-back that has yielded. The call can have been ended meanwhile. */
static int resumed(lua_State *L, int status, lua_KContext call)
{
    t_MODULE *module = lua_touserdata(L, lua_upvalueindex(1));
    const int32_t answer = take_answer(L, status);
    if (module->call != call)
        return fail_class(L, KA_CANCELLED, 0, "the call was ended before its call-back was answered");
    if (ka_answer(module->host, answer) != KA_DONE) return fail_step(L, module);
    return go_on(L, module, call);
}

/* Values of the function: the module, what is known of the function, a function of Lua that does nothing. */
static int call_function(lua_State *L)
{
    t_MODULE *module = lua_touserdata(L, lua_upvalueindex(1));
    const t_FUNCTION *function = lua_touserdata(L, lua_upvalueindex(2));
    luaL_checkstack(L, 40, "arguments");
    const lua_KContext call = push_guard(L, module);
    lua_pushvalue(L, lua_upvalueindex(2));
    lua_insert(L, GUARD_AT + 1);
    lua_getiuservalue(L, GUARD_AT + 1, VALUE_NAME);
    ka_begin(module->host, lua_tostring(L, -1));
    lua_pop(L, 1);
    add_arguments(L, module, function, GUARD_AT + 1, GUARD_AT + 2);
    lua_settop(L, GUARD_AT);
    lua_pushboolean(L, 0);
    lua_pushnil(L);
    module->sent = ka_send(module->host) == KA_DONE;
    return module->sent ? go_on(L, module, call) : fail_host(L, module->host);
}

void push_function(lua_State *L, int module_index)
{
    lua_pushvalue(L, module_index);
    lua_insert(L, -2);
    if (luaL_loadstring(L, "") != LUA_OK) lua_error(L);
    lua_pushcclosure(L, call_function, 3);
}

void make_call_type(lua_State *L)
{
    luaL_newmetatable(L, CALL_TYPE);
    lua_pushcfunction(L, close_guard);
    lua_setfield(L, -2, "__close");
    lua_pushcfunction(L, close_guard);
    lua_setfield(L, -2, "__gc");
    lua_pop(L, 1);
}
