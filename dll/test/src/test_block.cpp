/* SPDX-License-Identifier: MIT
 *
 * See test_block.h. */
#include "test_block.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "dll/src/block.h"
#include "wire/sound_reals.h"

extern "C" {
__attribute__((weak)) void __asan_poison_memory_region(const volatile void *from, size_t size);
__attribute__((weak)) void __asan_unpoison_memory_region(const volatile void *from, size_t size);
}

namespace {

constexpr int64_t gap = 16; /* between two values, bytes */

/* The caller's address of the block: another than that of the host, as in a real call. */
constexpr uint64_t base = 0x7f2540000000;

void forbid(ka_test *test, int64_t from, int64_t end)
{
    if (__asan_poison_memory_region != nullptr)
        __asan_poison_memory_region(test->block + from, static_cast<size_t>(end - from));
}

void allow(ka_test *test, int64_t from, int64_t end)
{
    if (__asan_unpoison_memory_region != nullptr)
        __asan_unpoison_memory_region(test->block + from, static_cast<size_t>(end - from));
}

void store_address(char *to, int64_t offset)
{
    const uint64_t address = base + static_cast<uint64_t>(offset);
    memcpy(to, &address, host::layout().address_size);
}

/* ---- Where values lie ------------------------------------------------------------------------------------------ */

struct t_PLACE {
    int64_t offset;
    int64_t end;
    int64_t stride;
    int32_t room; /* of a string */
};

const char *called; /* what a refusal names */
int32_t position;

[[noreturn]] void refuse(const char *what)
{
    char text[200];
    snprintf(text, sizeof text, "argument %d of \"%.80s\": %s", position, called, what);
    ka_test_refuse(text);
}

const void *values_of(const ka_test_argument *argument)
{
    return argument->values != nullptr ? argument->values : &argument->own;
}

const KaStr *strings_of(const ka_test_argument *argument)
{
    return static_cast<const KaStr *>(values_of(argument));
}

int32_t type_of(const ka_test_argument *argument)
{
    switch (argument->form) {
    case KA_TEST_INT32:
        return DLL_INTEGER;
    case KA_TEST_DOUBLE:
    case KA_TEST_REAL:
        return DLL_REAL;
    case KA_TEST_STRING:
        return DLL_STRING;
    default:
        refuse("form is none of the KA_TEST_ ones");
    }
}

/* Bytes of an element that are its own. */
int64_t element_bytes(int32_t type, int32_t room)
{
    if (type == DLL_STRING) return int64_t{4} + room;
    return type == DLL_REAL ? sizeof(t_DECIMAL) : sizeof(int32_t);
}

int64_t stride_of(const ka_test_argument *argument, int64_t bytes)
{
    const int64_t next = (bytes + 3) / 4 * 4;
    if (argument->elsz == 0) return next;
    if (int64_t{argument->elsz} * 4 < next) refuse("elsz is less than an element needs");
    return int64_t{argument->elsz} * 4;
}

/* Behind what ends at end. An argument of no elements still gets a word of its own. */
t_PLACE place_after(int64_t end, const ka_test_argument *argument)
{
    if (argument->shift < 0 || argument->shift > 7) refuse("shift is not 0 to 7");
    const int32_t type = type_of(argument);
    const int32_t room = type == DLL_STRING && argument->count > 0 ? strings_of(argument)->maxlen : 0;
    const int64_t bytes = element_bytes(type, room);
    const int64_t stride = stride_of(argument, bytes);
    const int64_t offset = (end + gap + 7) / 8 * 8 + argument->shift;
    const int64_t size = argument->count > 0 ? stride * (argument->count - 1) + bytes : 4;
    return {offset, offset + size, stride, room};
}

/* ---- Values into the block, and out of it ---------------------------------------------------------------------- */

void put_real(char *to, const t_DECIMAL *real)
{
    if (real->dec_pos == DEC_NULL) refuse("a null REAL");
    memcpy(to, real, sizeof *real);
}

void put_double(char *to, double value)
{
    t_DECIMAL real;
    if (deccvdbl(value, &real) != DEC_OK) refuse("a double that cannot be held by a REAL");
    memcpy(to, &real, sizeof real);
}

/* The room behind the text is cleared. */
void put_string(char *to, const KaStr *string, int32_t room)
{
    if (string->maxlen != room) refuse("strings of different maxlen");
    if (string->len < 0 || string->len > room) refuse("a string longer than its room");
    const size_t length = static_cast<size_t>(string->len);
    memcpy(to, &string->len, 4);
    if (length > 0) memcpy(to + 4, string->data, length);
    memset(to + 4 + length, 0, static_cast<size_t>(room) - length);
}

void put_element(char *to, const ka_test_argument *argument, int32_t k, int32_t room)
{
    const void *values = values_of(argument);
    switch (argument->form) {
    case KA_TEST_INT32:
        memcpy(to, static_cast<const int32_t *>(values) + k, sizeof(int32_t));
        break;
    case KA_TEST_DOUBLE:
        put_double(to, static_cast<const double *>(values)[k]);
        break;
    case KA_TEST_REAL:
        put_real(to, static_cast<const t_DECIMAL *>(values) + k);
        break;
    default:
        put_string(to, strings_of(argument) + k, room);
        break;
    }
}

double double_of(const t_DECIMAL *real)
{
    double value = __builtin_nan("");
    if (real->dec_pos != DEC_NULL) dectodbl(real, &value);
    return value;
}

/* A length that the function left out of range counts as the nearest one in it. */
void take_string(const char *from, KaStr *string)
{
    const int32_t length = load32(from);
    string->len = length < 0 ? 0 : length > string->maxlen ? string->maxlen : length;
    if (string->len > 0) memcpy(string->data, from + 4, static_cast<size_t>(string->len));
}

void take_element(const char *from, ka_test_argument *argument, int32_t k)
{
    void *values = argument->values != nullptr ? argument->values : &argument->own;
    t_DECIMAL real;
    switch (argument->form) {
    case KA_TEST_INT32:
        memcpy(static_cast<int32_t *>(values) + k, from, sizeof(int32_t));
        break;
    case KA_TEST_DOUBLE:
        wire::copy_sound_reals(from, &real, 1);
        static_cast<double *>(values)[k] = double_of(&real);
        break;
    case KA_TEST_REAL:
        wire::copy_sound_reals(from, static_cast<t_DECIMAL *>(values) + k, 1);
        break;
    default:
        take_string(from, static_cast<KaStr *>(values) + k);
        break;
    }
}

/* ---- Descriptors ----------------------------------------------------------------------------------------------- */

char *descriptor(int32_t index)
{
    const t_LAYOUT &layout = host::layout();
    return host::at(layout.args + static_cast<uint32_t>(index) * layout.arg_size);
}

void write_descriptor(int32_t index, const ka_test_argument *argument, const t_PLACE &place)
{
    char *at = descriptor(index);
    store32(at + wire::ARG_TYPE_AT, type_of(argument));
    store32(at + wire::ARG_REF_AT, argument->by_reference != 0 ? 1 : 0);
    store_address(at + wire::ARG_PTR_AT, place.offset);
    char *counts = at + host::layout().arg_counts;
    store32(counts, place.room);
    store32(counts + 4, static_cast<int32_t>(place.stride / 4));
    store32(counts + 8, argument->count);
}

int32_t count_of(const ka_test_argument *arguments)
{
    int32_t count = 0;
    while (arguments[count].form != KA_TEST_END)
        count++;
    return count;
}

/* Behind all descriptors, of which there may be more than the host takes. */
int64_t values_start(const ka_test_argument *arguments)
{
    const t_LAYOUT &layout = host::layout();
    const int64_t end = layout.args + (int64_t{count_of(arguments)} + 1) * layout.arg_size;
    return end > VALUES_START ? end : int64_t{VALUES_START};
}

int64_t place_argument(ka_test *test, int32_t index, const ka_test_argument *argument, int64_t end)
{
    position = index;
    const t_PLACE place = place_after(end, argument);
    if (argument->values == nullptr && argument->count > 1) refuse("values is null, and count above 1");
    if (place.end + gap > scratch_offset(test)) refuse("segment_bytes is too small for it");
    allow(test, place.offset, place.end);
    memset(test->block + place.offset, 0, 4); /* read as a length even where there is no string: by a zString */
    for (int32_t k = 0; k < argument->count; k++)
        put_element(test->block + place.offset + k * place.stride, argument, k, place.room);
    write_descriptor(index, argument, place);
    return place.end;
}

} // namespace

void create_block(ka_test *test)
{
    test->block = static_cast<char *>(calloc(1, static_cast<size_t>(test->segment_bytes)));
    if (test->block == nullptr) ka_test_refuse("no memory");
    forbid(test, VALUES_START, scratch_offset(test));
}

int32_t scratch_offset(const ka_test *test)
{
    return test->segment_bytes - test->scratch_bytes;
}

void write_header(ka_test *test)
{
    const t_LAYOUT &layout = host::layout();
    memcpy(test->block, DLL_MAGIC, wire::MAGIC_SIZE);
    store32(test->block + wire::VERSION_AT, DLL_VERSION);
    store32(test->block + wire::PID_AT, getpid());
    store_address(test->block + layout.base, 0);
    store32(test->block + layout.retcode, 0);
    store32(test->block + layout.shmsz, test->segment_bytes);
    memset(test->block + layout.scratch, 0, layout.address_size);
    if (test->scratch_bytes > 0) store_address(test->block + layout.scratch, scratch_offset(test));
    store32(test->block + layout.cbval, 0);
    store32(test->block + layout.argc, 0);
}

void place_call(ka_test *test, const char *function, const ka_test_argument *arguments)
{
    called = function;
    ka_test_argument name = ka_in_text(function);
    const int32_t count = count_of(arguments);
    const int64_t start = values_start(arguments);
    if (start > scratch_offset(test)) ka_test_refuse("segment_bytes is too small for the arguments");
    allow(test, VALUES_START, start);
    int64_t end = place_argument(test, 0, &name, start);
    for (int32_t i = 0; i < count; i++)
        end = place_argument(test, i + 1, &arguments[i], end);
    store32(host::at(host::layout().argc), count + 1);
}

void take_results(ka_test *test, ka_test_argument *arguments)
{
    ka_test_argument name = ka_in_text(called);
    int64_t end = place_after(values_start(arguments), &name).end;
    for (int32_t i = 0; arguments[i].form != KA_TEST_END; i++) {
        ka_test_argument *argument = &arguments[i];
        const t_PLACE place = place_after(end, argument);
        end = place.end;
        argument->gives_back =
            argument->by_reference != 0 && load32(descriptor(i + 1) + wire::ARG_REF_AT) != 0 ? 1 : 0;
        for (int32_t k = 0; argument->gives_back != 0 && k < argument->count; k++)
            take_element(test->block + place.offset + k * place.stride, argument, k);
    }
    forbid(test, VALUES_START, end);
}
