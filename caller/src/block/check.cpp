/* SPDX-License-Identifier: MIT
 *
 * The host's own rules, applied to a call before it is sent, in the host's own order. So a call that passes is one
 * that reaches the function, and a refusal can name what is wrong, which the host's numbers do not. */
#include "check.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "base/name.h"
#include "ka/dll_codes.h"
#include "module/tables.h"
#include "wire/kinds.h"

namespace {
/* A text of limited length, put together from parts. */
struct t_REFUSAL_TEXT {
    char characters[400];
    size_t length;
};
} // namespace

__attribute__((format(printf, 2, 3))) static void append(t_REFUSAL_TEXT *text, const char *format, ...)
{
    va_list values;
    va_start(values, format);
    const size_t left = sizeof text->characters - text->length;
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the line before it is not understood
    const int length = vsnprintf(text->characters + text->length, left, format, values);
    va_end(values);
    if (length > 0) text->length += static_cast<size_t>(length) < left ? static_cast<size_t>(length) : left - 1;
}

/* Stores the refusal; what follows the function's name in it is text. */
static int32_t refuse(ka_host *host, int32_t return_code, int32_t argument, const t_REFUSAL_TEXT *text)
{
    fail(host, KA_REFUSED, "%s: %s", host->function, text->characters);
    host->error.return_code = return_code;
    host->error.argument = argument;
    return KA_REFUSED;
}

/* ---- One argument ---------------------------------------------------------------------------------------------- */

static void append_argument(t_REFUSAL_TEXT *text, int32_t number, const ka_prototype *prototype)
{
    char name[SHOWN_NAME];
    show_name(name, prototype->name);
    append(text, "argument %d", number);
    if (name[0] != '\0') append(text, " (%s)", name);
}

static void append_elements(t_REFUSAL_TEXT *text, int32_t count)
{
    append(text, "%d element%s of ", count, count == 1 ? "" : "s");
}

static int32_t refuse_kind(ka_host *host, int32_t number, const ka_prototype *prototype)
{
    t_REFUSAL_TEXT text = {};
    append(&text, "the module's own table is wrong: the prototype of ");
    append_argument(&text, number, prototype);
    if (prototype->kind == KIND_UNREADABLE)
        append(&text, " lies outside the module");
    else
        append(&text, " has kind %d, and kinds are 0 to %d", prototype->kind, KA_STRING_ARRAY);
    return refuse(host, KA_BAD_PROTOTYPE, number, &text);
}

/* Element counts are shown only for kinds that have a minimum. */
static int32_t refuse_value(ka_host *host, int32_t return_code, int32_t number, const ka_prototype *prototype)
{
    const t_KIND &kind = wire::kinds[prototype->kind];
    const t_ARGUMENT *argument = &host->arguments[number];
    const bool counted = kind.array && prototype->min_elements > 0;
    t_REFUSAL_TEXT text = {};
    append_argument(&text, number, prototype);
    append(&text, " is %s: takes ", kind.name);
    if (counted) append(&text, "at least ");
    if (counted) append_elements(&text, prototype->min_elements);
    append(&text, "%s by %s, got ", wire::types_taken(kind), kind.gives_back ? "reference" : "value");
    if (counted) append_elements(&text, argument->count);
    append(&text, "%s", wire::type_name(argument->type));
    return refuse(host, return_code, number, &text);
}

/* Too few elements come before a wrong type. */
static int32_t check_argument(ka_host *host, int32_t number, const ka_prototype *prototype)
{
    const t_ARGUMENT *argument = &host->arguments[number];
    if (!wire::is_kind(prototype->kind)) return refuse_kind(host, number, prototype);
    const t_KIND &kind = wire::kinds[prototype->kind];
    if (kind.array && prototype->min_elements > argument->count)
        return refuse_value(host, KA_TOO_FEW_ELEMENTS, number, prototype);
    if (!wire::accepts(kind, argument->type)) return refuse_value(host, KA_WRONG_TYPE, number, prototype);
    return KA_DONE;
}

/* ---- All of them ----------------------------------------------------------------------------------------------- */

static void append_names(t_REFUSAL_TEXT *text, const ka_function *function, int32_t count)
{
    static constexpr size_t room_for_rest = 120;
    for (int32_t i = 0; i < count; i++) {
        char name[SHOWN_NAME];
        show_name(name, function->prototypes[i].name);
        append(text, i == 0 ? " (" : ", ");
        if (sizeof text->characters - text->length < SHOWN_NAME + room_for_rest) {
            append(text, "...)");
            return;
        }
        append(text, "%s", name[0] != '\0' ? name : "?");
        if (wire::takes_all_further(function->prototypes[i].kind)) append(text, "...");
    }
    if (count > 0) append(text, ")");
}

static int32_t find_vararg(const ka_function *function)
{
    int32_t i = 0;
    while (i < function->prototype_count && !wire::takes_all_further(function->prototypes[i].kind))
        i++;
    return i;
}

static int32_t refuse_count(ka_host *host, const ka_function *function)
{
    t_REFUSAL_TEXT text = {};
    const int32_t count = function->prototype_count;
    const int32_t least = find_vararg(function);
    if (count < 0)
        append(&text, "the module's own table is wrong: it gives the function %d arguments", count);
    else if (count > DLL_MAX_ARGS)
        append(&text, "the module's own table is wrong: it gives the function more than %d arguments", DLL_MAX_ARGS);
    else if (count == 0)
        append(&text, "takes no arguments");
    else
        append(&text, "takes %d %s", least,
               least < count ? "or more arguments"
               : least == 1  ? "argument"
                             : "arguments");
    if (count > 0 && count <= DLL_MAX_ARGS) append_names(&text, function, least < count ? least + 1 : count);
    append(&text, ", got %d", host->building.argc - 1);
    return refuse(host, KA_WRONG_COUNT, 0, &text);
}

/* A VarArg (wire/kinds.h) counts even as the first prototype of a function
   with fewer than none. */
static int32_t check_arguments(ka_host *host, const ka_function *function)
{
    int32_t position = 0;
    for (int32_t number = 1; number < host->building.argc; number++) {
        if (position >= function->prototype_count) return refuse_count(host, function);
        const ka_prototype *prototype = &function->prototypes[position];
        if (check_argument(host, number, prototype) != KA_DONE) return KA_REFUSED;
        position = wire::next_prototype(position, prototype->kind);
    }
    if (position == function->prototype_count) return KA_DONE;
    return wire::takes_all_further(function->prototypes[position].kind) ? KA_DONE : refuse_count(host, function);
}

/* The name is read where the host will read it. A module that changes it now only misleads itself. */
int32_t check_call(ka_host *host)
{
    const t_ARGUMENT *name = &host->arguments[0];
    const ka_function *function = look_up(host->prepared.tables, host->segment.base + name->offset + 4, name->room);
    if (function) return check_arguments(host, function);
    fail(host, KA_REFUSED, "the module has no function \"%s\"", host->function);
    host->error.return_code = KA_NO_FUNCTION;
    return KA_REFUSED;
}
