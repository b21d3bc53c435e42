/* SPDX-License-Identifier: MIT
 *
 * Every character that the trace writes. It only reads: nothing here changes what a call does. Lines of the block
 * dump end with carriage return and line feed, all others with a line feed. */
#include "trace.h"

#include <stdio.h>
#include <string.h>

#include "block.h"
#include "ka/kastring.h"
#include "wire/kinds.h"

KA_API int32_t dll_debug = 0;

/* ---- Lengths --------------------------------------------------------------------------------------------------- */

namespace {

int32_t smaller(size_t size, int32_t most)
{
    return size < static_cast<size_t>(most) ? static_cast<int32_t>(size) : most;
}

/* Whether the characters of a string lie in the segment, or right behind it, where its last bytes are their length;
   if so, room is the bytes from there to the end. The block may be damaged, its own word about its size as well. */
bool is_in_segment(const char *characters, int32_t *room)
{
    const size_t size = host::segment_bytes;
    const uintptr_t ofs = reinterpret_cast<uintptr_t>(characters) - reinterpret_cast<uintptr_t>(u_get_baseptr());
    *room = ofs < size ? smaller(size - ofs, INT32_MAX) : 0;
    return ofs < size + sizeof(int32_t);
}

/* Up to a zero byte where length is negative; never past the end of the segment. Those of a module's are as long as
   it says. */
int32_t shown_length(int32_t length, const char *characters)
{
    int32_t room;
    if (!is_in_segment(characters, &room)) return length;
    return length < 0 || length > room ? room : length;
}

} // namespace

/* ---- The block ------------------------------------------------------------------------------------------------- */

namespace {

unsigned word(const char *from, size_t index)
{
    return static_cast<unsigned>(load32(from + sizeof(int32_t) * index));
}

/* The length is the width of the field too, and no wider than the segment; a negative one sets the characters, up to
   a zero, on the left of it. */
void write_block_string(const char *string)
{
    const int32_t length = load32(string);
    const char *characters = string + sizeof length;
    int32_t room;
    if (!is_in_segment(characters, &room)) room = smaller(host::segment_bytes, INT32_MAX);
    const int32_t width = length > room ? room : length < -room ? -room : length;
    fprintf(stderr, "= \"%*.*s\"\r\n", width, length < 0 ? room : width, characters);
}

void write_block_value(const t_DLL_ARG &arg)
{
    const char *value = static_cast<const char *>(arg.ptr);
    switch (arg.type) {
    case DLL_INTEGER:
        fprintf(stderr, "= %d\r\n", load32(value));
        break;
    case DLL_REAL:
        fprintf(stderr, "= %08x %08x %08x\r\n", word(value, 0), word(value, 1), word(value, 2));
        break;
    case DLL_STRING:
        write_block_string(value);
        break;
    default:
        break;
    }
}

void write_descriptor(int32_t i, const void *origin)
{
    const t_DLL_ARG arg = u_get_arg(i);
    const uintptr_t ofs = reinterpret_cast<uintptr_t>(arg.ptr) - reinterpret_cast<uintptr_t>(origin);
    fprintf(stderr, "# %d\r\n", i);
    fprintf(stderr, "type   = DLL_%s\r\n", wire::is_type(arg.type) ? wire::type_name(arg.type) : "???");
    fprintf(stderr, "ptr    = %p\r\n", arg.ptr);
    fprintf(stderr, "ofs    = %d\r\n", static_cast<int32_t>(ofs));
    fprintf(stderr, "maxlen = %d\r\n", arg.maxlen);
    fprintf(stderr, "elsz   = %d\r\n", arg.elsz);
    fprintf(stderr, "elcnt  = %d\r\n", arg.elcnt);
    write_block_value(arg);
}

} // namespace

/* KEPT: lines of the block end with carriage return and line feed, all other lines of the trace with a line feed.
   Test: TraceBlock.name_and_two_integers_are_three_descriptors. */
void write_block(void)
{
    const int32_t argc = u_get_argc();
    fprintf(stderr, "dll base = %p\r\n", u_get_baseptr());
    fprintf(stderr, "argc = %d\r\n", argc);
    if (argc > 0) {
        const void *origin = u_get_arg(0).ptr;
        for (int32_t i = 0; i < argc; i++) {
            write_descriptor(i, origin);
        }
    }
    fflush(stderr);
}

/* ---- Refusals -------------------------------------------------------------------------------------------------- */

void write_no_name(void)
{
    fputs("illegal argument count, function name is required\n", stderr);
}

void write_too_many(void)
{
    fprintf(stderr, "argument count exceeds maximum (%d)\n", DLL_MAX_ARGS);
}

void write_name_type(void)
{
    fputs("first argument must be function name\n", stderr);
}

void write_undefined(int32_t length, const char *characters)
{
    fprintf(stderr, "undefined function name: \"%.*s\"\n", shown_length(length, characters), characters);
}

void write_extra(void)
{
    fputs("extra argument detected\n", stderr);
}

void write_wrong_count(int32_t argi)
{
    fprintf(stderr, "%s: wrong number of arguments\n", KaFunc->name);
    fprintf(stderr, "KaFunc->arg_cnt = %d, argi = %d, proto->type = %d\n", KaFunc->arg_cnt, argi,
            prototype(argi)->type);
}

/* ---- Matching -------------------------------------------------------------------------------------------------- */

namespace {

const char *kind_name(int32_t kind)
{
    if (kind == KA_VARARG) return KaArgTypeNames[0].name;
    const t_KIND_NAME *row = &KaArgTypeNames[1];
    while (row->kind != -1 && row->kind != kind)
        row++;
    return row->name;
}

} // namespace

void write_function(void)
{
    fprintf(stderr, "\nfunction name = \"%s\", argc = %d\n", KaFunc->name, KaFunc_arg_cnt);
}

void write_argument(const t_DLL_PROTO *proto, const t_DLL_ARG &arg)
{
    fprintf(stderr, " arg = %s", proto->name);
    fprintf(stderr, ", %s", kind_name(proto->type));
    fprintf(stderr, ", CALL = %s", wire::type_name(arg.type));
    fprintf(stderr, ", elcnt = %d", arg.elcnt);
    fprintf(stderr, " (%s)\n", arg.ref != 0 ? "ByRef" : "ByValue");
}

/* ---- The call and its values ----------------------------------------------------------------------------------- */

namespace {

void write_element(int32_t code, const void *values, int32_t k)
{
    switch (code) {
    case CV_BLOCK:
    case CV_REAL_INT:
        fprintf(stderr, "%d", load32(static_cast<const char *>(values) + sizeof(int32_t) * static_cast<size_t>(k)));
        break;
    case CV_STRREC: {
        const KaStr &s = static_cast<const KaStr *>(values)[k];
        fprintf(stderr, "\"%.*s\"", shown_length(s.len, s.data), s.data);
        break;
    }
    case CV_ZSTRING:
        fprintf(stderr, "\"%s\"", static_cast<const char *>(values));
        break;
    case CV_INT_DBL:
    case CV_REAL_DBL:
        fprintf(stderr, "%1.15g", static_cast<const double *>(values)[k]);
        break;
    default:
        fputs("*ERROR*", stderr);
        break;
    }
}

/* Of a scalar kind only the first element is shown; an argument without elements has none in its buffer. */
int32_t shown_count(const t_DLL_ARG &arg, int32_t code)
{
    const bool per_element = code != CV_BLOCK && code != CV_ZSTRING;
    return per_element && arg.elcnt < 1 ? 0 : 1;
}

bool shown_as_array(const t_DLL_PROTO *proto, const t_DLL_ARG &arg)
{
    if (proto->type == KA_VARARG) return wire::is_type(arg.type) && arg.elcnt > 1;
    return wire::is_kind(proto->type) && wire::kinds[proto->type].array;
}

} // namespace

void dump_value(int32_t code, const void *values, int32_t count)
{
    for (int32_t k = 0; k < count; k++) {
        if (count != 1) fprintf(stderr, "  [%2d] ", k);
        write_element(code, values, k);
        if (count != 1) fputc('\n', stderr);
    }
}

void write_call(void)
{
    fprintf(stderr, "\ncalling %s, argc = %d\n", KaFunc->name, KaFunc_arg_cnt);
}

/* KEPT: an array of exactly one element leaves its value without a line end, and the next name follows on the same
   line. Test: Trace.array_of_one_element_has_no_line_end.
   KEPT: of several elements that a kind without "Array" in its name has got, only the first is shown.
   Test: Trace.scalar_kind_shows_the_first_element_only. */
void write_value(const t_DLL_PROTO *proto, const t_DLL_ARG &arg, int32_t slot)
{
    fprintf(stderr, " %s", proto->name);
    if (shown_as_array(proto, arg)) {
        fprintf(stderr, " = array [%d]\n", arg.elcnt);
        dump_value(KaCv[slot], KaAv[slot], arg.elcnt);
    } else {
        fputs(" = ", stderr);
        dump_value(KaCv[slot], KaAv[slot], shown_count(arg, KaCv[slot]));
        fputc('\n', stderr);
    }
}

void write_values(void)
{
    int32_t argi = 0;
    for (int32_t n = 1; n <= KaFunc_arg_cnt; n++) {
        write_value(prototype(argi), u_get_arg(n), n - 1);
        argi = next_prototype(argi);
    }
}

void write_result(int32_t result)
{
    fprintf(stderr, "return code is %d\n", result);
}
