/* SPDX-License-Identifier: MIT
 *
 * Values of Lua into arguments, and results into values of Lua. No value is changed in silence: what a kind cannot
 * hold is refused. Tables are read as lists, without metamethods. */
#include <stdio.h>
#include <string.h>

#include "ka/decimal.h"
#include "ka/real_text.h"
#include "kahost.h"

/* Where an argument is, for errors. */
typedef struct t_PLACE {
    lua_State *L;
    const t_FUNCTION *function;
    int function_index;
    int32_t number;  /* of the argument */
    int32_t element; /* of a list; 0 for none */
} t_PLACE;

/* ---- Refusals -------------------------------------------------------------------------------------------------- */

/* What is wrong is on top of the stack. */
static void refuse(const t_PLACE *place)
{
    lua_State *L = place->L;
    const char *what = lua_tostring(L, -1);
    lua_getiuservalue(L, place->function_index, VALUE_NAME);
    lua_getiuservalue(L, place->function_index, VALUE_ARGUMENTS);
    lua_rawgeti(L, -1, place->number);
    const char *name = lua_tostring(L, -1);
    lua_pushstring(L, "");
    if (name && name[0]) lua_pushfstring(L, " (%s)", name);
    if (place->element > 0) lua_pushfstring(L, "%s, element %d", lua_tostring(L, -1), (int)place->element);
    lua_getiuservalue(L, place->function_index, VALUE_NAME);
    fail_class(L, KA_ARGUMENT, place->number, "%s: argument %d%s: %s", lua_tostring(L, -1), (int)place->number,
               lua_tostring(L, -2), what);
}

static void refuse_type(const t_PLACE *place, int index, const char *wanted)
{
    if (lua_type(place->L, index) == LUA_TNUMBER)
        lua_pushfstring(place->L, "%s is %s, not %s", luaL_tolstring(place->L, index, NULL),
                        lua_isinteger(place->L, index) ? "an integer" : "a float", wanted);
    else
        lua_pushfstring(place->L, "a %s, not %s", luaL_typename(place->L, index), wanted);
    refuse(place);
}

/* ---- INTEGER --------------------------------------------------------------------------------------------------- */

bool to_int32(lua_State *L, int index, int32_t *value)
{
    if (lua_type(L, index) != LUA_TNUMBER || !lua_isinteger(L, index)) return false;
    const lua_Integer wide = lua_tointeger(L, index);
    *value = (int32_t)wide;
    return wide >= INT32_MIN && wide <= INT32_MAX;
}

static int32_t integer_at(const t_PLACE *place, int index)
{
    int32_t value = 0;
    if (to_int32(place->L, index, &value)) return value;
    if (lua_isinteger(place->L, index) && lua_type(place->L, index) == LUA_TNUMBER) {
        lua_pushfstring(place->L, "%s does not fit 32 bits", luaL_tolstring(place->L, index, NULL));
        refuse(place);
    }
    refuse_type(place, index, "an integer");
    return 0;
}

/* ---- REAL ------------------------------------------------------------------------------------------------------ */

static t_DECIMAL real_of_text(const t_PLACE *place, const char *text, size_t length, bool may_be_rounded)
{
    lua_State *L = place->L;
    t_DECIMAL real;
    int32_t exact = 0;
    const bool is_number = length <= INT32_MAX && ka_real_read(text, (int32_t)length, &real, &exact) == KA_DONE;
    if (!is_number) {
        lua_pushfstring(L, "\"%s\" is not a REAL", text);
        refuse(place);
    } else if (!exact && !may_be_rounded) {
        char nearest[KA_REAL_TEXT];
        lua_pushfstring(L, "%s has more decimals than a REAL holds; %s is the nearest (kahost.rounded allows it)",
                        text, ka_real_to_text(&real, nearest));
        refuse(place);
    }
    return real;
}

static t_DECIMAL real_of_integer(const t_PLACE *place, lua_Integer value, bool may_be_rounded)
{
    char text[32];
    const int length = snprintf(text, sizeof text, LUA_INTEGER_FMT, (LUAI_UACINT)value);
    return real_of_text(place, text, (size_t)length, may_be_rounded);
}

static t_DECIMAL real_at(const t_PLACE *place, int index, bool may_be_rounded)
{
    lua_State *L = place->L;
    t_DECIMAL real = {0};
    size_t length = 0;
    switch (lua_type(L, index)) {
    case LUA_TNUMBER:
        if (lua_isinteger(L, index)) return real_of_integer(place, lua_tointeger(L, index), may_be_rounded);
        if (deccvdbl(lua_tonumber(L, index), &real) == DEC_OK) return real;
        lua_pushfstring(L, "%s cannot be held by a REAL", luaL_tolstring(L, index, NULL));
        refuse(place);
        break;
    case LUA_TSTRING: {
        const char *text = lua_tolstring(L, index, &length);
        return real_of_text(place, text, length, may_be_rounded);
    }
    default:
        refuse_type(place, index, "a number or its decimal text");
    }
    return real;
}

/* ---- STRING ---------------------------------------------------------------------------------------------------- */

static ka_text text_at(const t_PLACE *place, int index)
{
    size_t length = 0;
    if (lua_type(place->L, index) != LUA_TSTRING) refuse_type(place, index, "a string");
    const char *data = lua_tolstring(place->L, index, &length);
    if (length > INT32_MAX) {
        lua_pushstring(place->L, "a string of 2 GiB and more");
        refuse(place);
    }
    const ka_text text = {data, (int32_t)length};
    return text;
}

/* ---- One argument ---------------------------------------------------------------------------------------------- */

static int32_t list_length(const t_PLACE *place, int index, const char *wanted)
{
    if (lua_type(place->L, index) != LUA_TTABLE) refuse_type(place, index, wanted);
    const lua_Unsigned length = lua_rawlen(place->L, index);
    if (length > INT32_MAX / 16) {
        lua_pushstring(place->L, "a list that is too long");
        refuse(place);
    }
    return (int32_t)length;
}

static void *new_elements(lua_State *L, int32_t count, size_t size)
{
    return lua_newuserdatauv(L, (size_t)(count > 0 ? count : 1) * size, 0);
}

/* The elements one after the other on top of the stack, each taken away after its turn. */
#define FOR_ELEMENTS(place, count, index)                                                        \
    for ((place).element = 1;                                                                    \
         (place).element <= (count) && (lua_rawgeti((place).L, (index), (place).element), true); \
         lua_pop((place).L, 1), (place).element++)

static void add_integer_list(t_PLACE place, ka_host *host, int index, int32_t passing)
{
    const int32_t count = list_length(&place, index, "a list of integers");
    int32_t *values = new_elements(place.L, count, sizeof *values);
    FOR_ELEMENTS(place, count, index) values[place.element - 1] = integer_at(&place, lua_gettop(place.L));
    ka_add_integers(host, values, count, passing);
}

static void add_real_list(t_PLACE place, ka_host *host, int index, int32_t passing, bool may_be_rounded)
{
    const int32_t count = list_length(&place, index, "a list of numbers");
    t_DECIMAL *values = new_elements(place.L, count, sizeof *values);
    FOR_ELEMENTS(place, count, index)
    values[place.element - 1] = real_at(&place, lua_gettop(place.L), may_be_rounded);
    ka_add_reals(host, values, count, passing);
}

/* The strings stay in the list, whose place they have in memory: nothing of Lua runs before they are copied. */
static void add_string_list(t_PLACE place, ka_host *host, int index, int32_t passing, int32_t room)
{
    const int32_t count = list_length(&place, index, "a list of strings");
    ka_text *values = new_elements(place.L, count, sizeof *values);
    int32_t longest = 0;
    FOR_ELEMENTS(place, count, index)
    {
        values[place.element - 1] = text_at(&place, lua_gettop(place.L));
        if (values[place.element - 1].length > longest) longest = values[place.element - 1].length;
    }
    ka_add_strings(host, values, count, room > longest ? room : longest, passing);
}

static void add_string(const t_PLACE *place, ka_host *host, int index, int32_t passing, int32_t room)
{
    const ka_text text = text_at(place, index);
    ka_add_string(host, text.data, text.length, room > text.length ? room : text.length, passing);
}

static void add_zstring(const t_PLACE *place, ka_host *host, int index)
{
    const ka_text text = text_at(place, index);
    if (memchr(text.data, 0, (size_t)text.length)) {
        lua_pushstring(place->L, "a string with a zero byte, where it would end");
        refuse(place);
    }
    ka_add_string(host, text.data, text.length, 0, KA_BY_VALUE);
}

/* By value an INTEGER serves, too, and is exact. */
static void add_real_by_value(const t_PLACE *place, ka_host *host, int index, bool may_be_rounded)
{
    int32_t integer;
    if (to_int32(place->L, index, &integer)) {
        ka_add_integer(host, integer, KA_BY_VALUE);
        return;
    }
    const t_DECIMAL real = real_at(place, index, may_be_rounded);
    ka_add_reals(host, &real, 1, KA_BY_VALUE);
}

/* The kind of a single argument that a value of Lua becomes by its own type; -1 for a list. */
static int32_t kind_of(const t_PLACE *place, int index, const t_MARK *mark)
{
    lua_State *L = place->L;
    if (mark->is_real) return KA_REAL_BY_REFERENCE;
    switch (lua_type(L, index)) {
    case LUA_TNUMBER:
        return lua_isinteger(L, index) ? KA_INT_BY_REFERENCE : KA_REAL_BY_REFERENCE;
    case LUA_TSTRING:
        return KA_STRING;
    case LUA_TTABLE:
        return -1;
    default:
        refuse_type(place, index, "a number, a string or a list");
    }
    return 0;
}

/* Of the list's elements: integers alone are INTEGERs; with a float among them, they are REALs. */
static int32_t kind_of_list(t_PLACE place, int index, const t_MARK *mark)
{
    int32_t kind = 0;
    const int32_t count = list_length(&place, index, "a list");
    if (mark->is_real) return KA_REAL_ARRAY;
    FOR_ELEMENTS(place, count, index)
    {
        const int32_t found = kind_of(&place, lua_gettop(place.L), mark);
        const bool numbers = (kind == KA_INT_BY_REFERENCE && found == KA_REAL_BY_REFERENCE) ||
                             (kind == KA_REAL_BY_REFERENCE && found == KA_INT_BY_REFERENCE);
        if (kind != 0 && kind != found && !numbers) {
            lua_pushstring(place.L, "a list of several types");
            refuse(&place);
        }
        kind = numbers ? KA_REAL_BY_REFERENCE : found;
    }
    place.element = 0;
    if (kind <= 0) {
        lua_pushstring(place.L, "a list whose type cannot be seen; kahost.real makes one of REALs");
        refuse(&place);
    }
    return kind == KA_INT_BY_REFERENCE ? KA_INT_ARRAY : kind == KA_STRING ? KA_STRING_ARRAY : KA_REAL_ARRAY;
}

static int32_t type_of_kind(int32_t kind)
{
    if (kind == KA_ZSTRING || kind == KA_STRING || kind == KA_STRING_ARRAY) return DLL_STRING;
    return kind == KA_REAL_BY_VALUE || kind == KA_REAL_BY_REFERENCE || kind == KA_REAL_ARRAY ? DLL_REAL : DLL_INTEGER;
}

static void add_as(const t_PLACE *place, t_MODULE *module, int index, int32_t kind, int32_t passing,
                   const t_MARK *mark)
{
    ka_host *host = module->host;
    const int32_t room = mark->room > 0 ? mark->room : passing == KA_BY_REFERENCE ? module->room : 0;
    t_PASSED *passed = &module->passed[place->number - 1];
    *passed = (t_PASSED){type_of_kind(kind), 1, false, passing == KA_BY_REFERENCE};
    if (kind == KA_INT_ARRAY || kind == KA_REAL_ARRAY || kind == KA_STRING_ARRAY) {
        passed->is_list = true;
        if (lua_istable(place->L, index)) passed->count = (int32_t)lua_rawlen(place->L, index);
    }
    switch (kind) {
    case KA_INT_BY_VALUE:
    case KA_INT_BY_REFERENCE:
        ka_add_integer(host, integer_at(place, index), passing);
        break;
    case KA_INT_ARRAY:
        add_integer_list(*place, host, index, passing);
        break;
    case KA_REAL_BY_VALUE:
        add_real_by_value(place, host, index, mark->may_be_rounded);
        break;
    case KA_REAL_BY_REFERENCE: {
        const t_DECIMAL real = real_at(place, index, mark->may_be_rounded);
        ka_add_reals(host, &real, 1, passing);
        break;
    }
    case KA_REAL_ARRAY:
        add_real_list(*place, host, index, passing, mark->may_be_rounded);
        break;
    case KA_ZSTRING:
        add_zstring(place, host, index);
        break;
    case KA_STRING:
        add_string(place, host, index, passing, room);
        break;
    default:
        add_string_list(*place, host, index, passing, room);
        break;
    }
}

/* Replaces a mark by the value in it. */
static t_MARK take_mark(lua_State *L, int index)
{
    const t_MARK none = {false, false, false, 0};
    const t_MARK *mark = luaL_testudata(L, index, MARK_TYPE);
    if (!mark) return none;
    lua_getiuservalue(L, index, 1);
    lua_replace(L, index);
    return *mark; /* the userdata was an argument, which its caller holds */
}

static void add_argument(const t_PLACE *place, t_MODULE *module, int index, int32_t kind)
{
    const t_MARK mark = take_mark(place->L, index);
    if (kind == KA_VARARG) {
        kind = kind_of(place, index, &mark);
        if (kind == -1 || (mark.is_real && lua_istable(place->L, index))) kind = kind_of_list(*place, index, &mark);
        add_as(place, module, index, kind, mark.by_reference ? KA_BY_REFERENCE : KA_BY_VALUE, &mark);
    } else if (kind >= KA_INT_BY_VALUE && kind <= KA_STRING_ARRAY) {
        const int32_t passing = ka_kind_gives_back(kind) ? KA_BY_REFERENCE : KA_BY_VALUE;
        add_as(place, module, index, kind, passing, &mark);
    } else {
        ka_add_integer(module->host, 0, KA_BY_VALUE); /* refused, with a text that names what is wrong */
    }
}

/* Outputs at the end of the list need not be passed. */
static bool has_default(int32_t kind)
{
    return kind == KA_INT_BY_REFERENCE || kind == KA_REAL_BY_REFERENCE || kind == KA_STRING;
}

static void add_default(t_MODULE *module, int32_t number, int32_t kind)
{
    module->passed[number - 1] = (t_PASSED){type_of_kind(kind), 1, false, true};
    if (kind == KA_INT_BY_REFERENCE) ka_add_integer(module->host, 0, KA_BY_REFERENCE);
    if (kind == KA_REAL_BY_REFERENCE) ka_add_real(module->host, "0", KA_BY_REFERENCE);
    if (kind == KA_STRING) ka_add_string(module->host, NULL, 0, module->room, KA_BY_REFERENCE);
}

/* How many prototypes take one argument each; the one behind them, if any, is a VarArg. */
static int32_t count_single(const t_FUNCTION *function)
{
    int32_t count = 0;
    while (count < function->count && function->kinds[count] != KA_VARARG)
        count++;
    return count;
}

/* More arguments than there are prototypes are added as they are: the library says how many it takes. */
void add_arguments(lua_State *L, t_MODULE *module, const t_FUNCTION *function, int function_index, int first)
{
    t_PLACE place = {L, function, function_index, 0, 0};
    const int given = lua_gettop(L) - first + 1;
    const int32_t single = count_single(function);
    int32_t least = single;
    while (least > 0 && has_default(function->kinds[least - 1]))
        least--;
    for (int32_t i = 0; i < given && i < DLL_MAX_ARGS; i++) {
        const int32_t kind = i < single ? function->kinds[i] : KA_VARARG;
        place.number = i + 1;
        const bool is_missing = i >= least && i < single && lua_isnil(L, first + i);
        if (is_missing)
            add_default(module, place.number, kind);
        else
            add_argument(&place, module, first + i, kind);
    }
    if (given > DLL_MAX_ARGS)
        fail_class(L, KA_REFUSED, 0, "a call with %d arguments; no call has more than %d", given, DLL_MAX_ARGS);
    for (int32_t i = given; i < single && i >= least; i++)
        add_default(module, i + 1, function->kinds[i]);
    module->passed_count = given > single || given < least ? given : single;
}

/* ---- Results --------------------------------------------------------------------------------------------------- */

static void push_real(lua_State *L, const t_DECIMAL *real, bool decimal)
{
    double value = 0;
    char text[KA_REAL_TEXT];
    if (real->dec_pos == DEC_NULL)
        lua_pushnil(L);
    else if (decimal)
        lua_pushstring(L, ka_real_to_text(real, text));
    else if (dectodbl(real, &value) == DEC_OK)
        lua_pushnumber(L, value);
    else
        lua_pushnil(L);
}

static void *result_elements(lua_State *L, const t_PASSED *passed, size_t size)
{
    return new_elements(L, passed->count, size);
}

/* false for a null REAL in a list, which then has no hole. */
static void collect(lua_State *L, const t_PASSED *passed, int32_t i)
{
    if (!passed->is_list) return;
    if (lua_isnil(L, -1)) {
        lua_pop(L, 1);
        lua_pushboolean(L, 0);
    }
    lua_rawseti(L, -2, i + 1);
}

static void push_integers(lua_State *L, ka_host *host, int32_t argument, const t_PASSED *passed)
{
    int32_t *values = result_elements(L, passed, sizeof *values);
    if (ka_get_integers(host, argument, values, passed->count) != KA_DONE) fail_host(L, host);
    if (passed->is_list) lua_createtable(L, passed->count, 0);
    for (int32_t i = 0; i < passed->count; i++) {
        lua_pushinteger(L, values[i]);
        collect(L, passed, i);
    }
}

static void push_reals(lua_State *L, ka_host *host, int32_t argument, const t_PASSED *passed, bool decimal)
{
    t_DECIMAL *values = result_elements(L, passed, sizeof *values);
    if (ka_get_reals(host, argument, values, passed->count) != KA_DONE) fail_host(L, host);
    if (passed->is_list) lua_createtable(L, passed->count, 0);
    for (int32_t i = 0; i < passed->count; i++) {
        push_real(L, &values[i], decimal);
        collect(L, passed, i);
    }
}

/* In one buffer; once more where threads of the module have made them longer meanwhile. */
static void push_strings(lua_State *L, ka_host *host, int32_t argument, const t_PASSED *passed)
{
    int32_t *offsets = new_elements(L, passed->count + 1, sizeof *offsets);
    int32_t size = 0;
    char *buffer = NULL;
    do {
        if (buffer || size > 0) buffer = lua_newuserdatauv(L, (size_t)size, 0);
        if (ka_get_strings(host, argument, buffer, buffer ? size : 0, offsets, passed->count) != KA_DONE)
            fail_host(L, host);
        const bool fits = offsets[passed->count] <= (buffer ? size : 0);
        size = offsets[passed->count];
        if (fits) break;
    } while (true);
    if (passed->is_list) lua_createtable(L, passed->count, 0);
    for (int32_t i = 0; i < passed->count; i++) {
        lua_pushlstring(L, buffer ? buffer + offsets[i] : "", (size_t)(offsets[i + 1] - offsets[i]));
        collect(L, passed, i);
    }
}

/* Each result stays, what else was needed for it goes. */
int push_results(lua_State *L, t_MODULE *module)
{
    const int before = lua_gettop(L);
    luaL_checkstack(L, DLL_MAX_ARGS + 10, "results");
    for (int32_t i = 0; i < module->passed_count; i++) {
        const t_PASSED *passed = &module->passed[i];
        if (!passed->by_reference) continue;
        const int place = lua_gettop(L) + 1;
        if (!ka_gives_back(module->host, i + 1)) {
            lua_pushnil(L);
            continue;
        }
        if (passed->type == DLL_INTEGER) push_integers(L, module->host, i + 1, passed);
        if (passed->type == DLL_REAL) push_reals(L, module->host, i + 1, passed, module->decimal);
        if (passed->type == DLL_STRING) push_strings(L, module->host, i + 1, passed);
        lua_replace(L, place);
        lua_settop(L, place);
    }
    return lua_gettop(L) - before;
}

/* ---- Marks ----------------------------------------------------------------------------------------------------- */

/* The value at 1 with what it is marked with already. */
static t_MARK *new_mark(lua_State *L)
{
    luaL_checkany(L, 1);
    const t_MARK before = take_mark(L, 1);
    t_MARK *mark = lua_newuserdatauv(L, sizeof *mark, 1);
    *mark = before;
    lua_pushvalue(L, 1);
    lua_setiuservalue(L, -2, 1);
    luaL_setmetatable(L, MARK_TYPE);
    return mark;
}

int mark_ref(lua_State *L)
{
    new_mark(L)->by_reference = true;
    return 1;
}

int mark_real(lua_State *L)
{
    new_mark(L)->is_real = true;
    return 1;
}

int mark_rounded(lua_State *L)
{
    new_mark(L)->may_be_rounded = true;
    return 1;
}

int mark_text(lua_State *L)
{
    const int32_t room = whole_number(L, 2, "room");
    if (room < 1) fail_class(L, KA_ARGUMENT, 2, "room is %d; it must be above 0", (int)room);
    new_mark(L)->room = room;
    return 1;
}

void make_mark_type(lua_State *L)
{
    luaL_newmetatable(L, MARK_TYPE);
    lua_pop(L, 1);
}
