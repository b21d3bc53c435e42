/* SPDX-License-Identifier: MIT
 *
 * The Lua module kahost: what its sources share. Every call into Lua may leave by a longjmp (an error, or no memory),
 * and every allocation may run finalizers, which are Lua code: so all memory belongs to Lua, and whatever has to be
 * undone hangs on a userdata. */
#ifndef KA_LUA_KAHOST_H
#define KA_LUA_KAHOST_H

#include <stdbool.h>
#include <stdint.h>

#include <lauxlib.h>
#include <lua.h>

#include "ka/caller.h"
#include "ka/dll_block.h"
#include "ka/dll_module.h"

/* An argument that was added, for its result. */
typedef struct t_PASSED {
    int32_t type;
    int32_t count;
    bool is_list;
    bool by_reference;
} t_PASSED;

/* A module, and the call that it is in. */
typedef struct t_MODULE {
    ka_host *host;    /* null: closed */
    lua_Integer call; /* number of the call under way; 0 for none */
    lua_Integer last_call;
    lua_State *caller; /* the coroutine that makes it, which lives as long as the guard of the call */
    bool sent;         /* it is the host's turn, or a call-back waits for its answer */
    bool closing;      /* the host is closed when the call is over */
    bool decimal;      /* REALs come back as text */
    int32_t room;      /* of strings by reference */
    int32_t passed_count;
    t_PASSED passed[DLL_MAX_ARGC];
} t_MODULE;

/* Values of a module's userdata. */
enum { VALUE_CALLBACK = 1, VALUE_FUNCTIONS = 2, VALUE_PATH = 3, VALUE_DEADLINE = 4, VALUE_TRACE = 5, VALUES = 5 };

/* What is known of a function; its name, and the names of its arguments in a list, are values of the userdata. */
typedef struct t_FUNCTION {
    int32_t count;
    int32_t kinds[DLL_MAX_ARGC];
} t_FUNCTION;
enum { VALUE_NAME = 1, VALUE_ARGUMENTS = 2 };

/* kahost.ref, .text, .real and .rounded: a value and how it is passed. */
typedef struct t_MARK {
    bool by_reference;
    bool is_real;
    bool may_be_rounded;
    int32_t room; /* 0 for none */
} t_MARK;

#define MODULE_TYPE "kahost.Module"
#define MARK_TYPE "kahost.Mark"
#define ERROR_TYPE "kahost.Error"

/* errors.c. None of these returns; the results are for "return fail(...)". */
int fail_host(lua_State *L, ka_host *host);
/* argument 0 is none in particular. */
int fail_class(lua_State *L, int32_t error_class, lua_Integer argument, const char *format, ...);
void make_error_type(lua_State *L);
void push_host_error(lua_State *L, ka_host *host);

/* options.c: the options at an index, or defaults. What they point to is kept on the stack. */
void read_options(lua_State *L, int index, ka_options *options, t_MODULE *module);
int32_t milliseconds(lua_State *L, int index, const char *name, bool zero);
int32_t whole_number(lua_State *L, int index, const char *name);

/* values.c */
void add_arguments(lua_State *L, t_MODULE *module, const t_FUNCTION *function, int function_index, int first);
int push_results(lua_State *L, t_MODULE *module);
bool to_int32(lua_State *L, int index, int32_t *value);
void make_mark_type(lua_State *L);
int mark_ref(lua_State *L);
int mark_text(lua_State *L);
int mark_real(lua_State *L);
int mark_rounded(lua_State *L);

/* call.c: a function of the module at the top of the stack; info is in place of it afterwards. */
void push_function(lua_State *L, int module_index);
void end_call(t_MODULE *module);
bool is_in_call(t_MODULE *module);
void make_call_type(lua_State *L);

/* tables.c */
void push_functions(lua_State *L, int module_index, const ka_tables *tables);
int read_tables(lua_State *L);
void make_tables_type(lua_State *L);

/* module.c */
int open_module(lua_State *L);
void close_host(t_MODULE *module);
t_MODULE *check_open(lua_State *L, int index);
void make_module_type(lua_State *L);

#endif
