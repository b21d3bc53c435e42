/* SPDX-License-Identifier: MIT
 *
 * Builds a call: each argument's value goes straight into the segment, its descriptor likewise, and what the library
 * needs to know of it later into a slot. When a call does not fit, nothing more is written, but the size is still
 * summed up, so that the error can name it. */
#include <stdio.h>
#include <string.h>

#include "host/host.h"
#include "segment.h"

namespace {
/* Where the values of an argument are; one of the pointers is used. */
struct t_SOURCE {
    const int32_t *integers = nullptr;
    const t_DECIMAL *reals = nullptr;
    const double *doubles = nullptr;
    const ka_text *strings = nullptr;
};
} // namespace

/* ---- Errors ---------------------------------------------------------------------------------------------------- */

/* Kept for ka_call: another function may fail before it. */
static int32_t keep_error(ka_host *host)
{
    host->build_failure = host->error;
    return host->build_error = host->error.error_class;
}

static int32_t fail_too_big(ka_host *host)
{
    const int64_t needed = host->cursor + host->options.scratch_bytes;
    fail(host, KA_TOO_BIG, "the call of \"%s\" needs a segment of %lld bytes, this one has %d", host->function,
         static_cast<long long>(needed), host->options.segment_bytes);
    host->error.needed_bytes = needed;
    return keep_error(host);
}

/* The first error of a call is kept. */
static int32_t fail_value(ka_host *host, int32_t element, const char *what)
{
    if (host->build_error != KA_DONE) return host->build_error;
    fail(host, KA_ARGUMENT, "argument %d of \"%s\", element %d: %s", host->argc, host->function, element, what);
    host->error.argument = host->argc;
    return keep_error(host);
}

/* ---- Elements -------------------------------------------------------------------------------------------------- */

static int32_t put_integers(ka_host *host, const t_SLOT *slot, const int32_t *values)
{
    memcpy(host->base + slot->offset, values, static_cast<size_t>(slot->count) * sizeof *values);
    return KA_DONE;
}

static int32_t put_reals(ka_host *host, const t_SLOT *slot, const t_DECIMAL *values)
{
    for (int32_t i = 0; i < slot->count; i++)
        if (values[i].dec_pos == DEC_NULL) return fail_value(host, i, "a null REAL");
    memcpy(host->base + slot->offset, values, static_cast<size_t>(slot->count) * sizeof *values);
    return KA_DONE;
}

static int32_t put_doubles(ka_host *host, const t_SLOT *slot, const double *values)
{
    for (int32_t i = 0; i < slot->count; i++) {
        t_DECIMAL real;
        if (deccvdbl(values[i], &real) != DEC_OK) {
            char what[64];
            snprintf(what, sizeof what, "%g cannot be held by a REAL", values[i]);
            return fail_value(host, i, what);
        }
        memcpy(host->base + slot->offset + static_cast<ptrdiff_t>(i) * slot->stride, &real, sizeof real);
    }
    return KA_DONE;
}

/* Room behind a string is cleared, so that nothing of an earlier call shows. */
static int32_t put_strings(ka_host *host, const t_SLOT *slot, const ka_text *values)
{
    for (int32_t i = 0; i < slot->count; i++) {
        char *element = host->base + slot->offset + static_cast<ptrdiff_t>(i) * slot->stride;
        // NOLINTNEXTLINE(clang-analyzer-core.uninitialized.Assign): there are as many values as the slot counts
        const size_t length = static_cast<size_t>(values[i].length);
        memcpy(element, &values[i].length, 4);
        if (length > 0) memcpy(element + 4, values[i].data, length);
        memset(element + 4 + length, 0, static_cast<size_t>(slot->stride) - 4 - length);
    }
    return KA_DONE;
}

static int32_t put_values(ka_host *host, const t_SLOT *slot, const t_SOURCE *source)
{
    if (source->integers) return put_integers(host, slot, source->integers);
    if (source->reals) return put_reals(host, slot, source->reals);
    if (source->doubles) return put_doubles(host, slot, source->doubles);
    if (source->strings) return put_strings(host, slot, source->strings);
    return KA_DONE;
}

/* ---- Arguments ------------------------------------------------------------------------------------------------- */

/* A call that is too big goes on being summed up; any other error ends the building. */
static int32_t check_turn(ka_host *host)
{
    if (host->state == STATE_ENDED) return fail(host, KA_CLOSED, "%.300s: the host has ended", host->module);
    if (host->state != STATE_BUILDING) return fail(host, KA_ARGUMENT, "an argument without ka_begin");
    if (host->build_error == KA_ARGUMENT) return KA_ARGUMENT;
    if (host->argc <= DLL_MAX_ARGS) return KA_DONE;
    fail(host, KA_ARGUMENT, "a call of \"%s\" with more than %d arguments", host->function, DLL_MAX_ARGS);
    host->error.argument = host->argc;
    return keep_error(host);
}

/* An argument of no elements still gets a word of its own: its address must lie inside the segment. The sum stops
   long before it could overflow. */
static int64_t reserve(ka_host *host, int64_t size)
{
    const int64_t offset = host->cursor;
    if (host->cursor < int64_t{1} << 61) host->cursor += size > 4 ? size : 4;
    return offset;
}

static int32_t add_argument(ka_host *host, const t_SLOT *shape, int64_t stride_bytes, const t_SOURCE *source)
{
    if (shape->count < 0) return fail_value(host, 0, "a negative count");
    if (shape->passing != KA_BY_VALUE && shape->passing != KA_BY_REFERENCE)
        return fail_value(host, 0, "passed neither by value nor by reference");
    const int64_t offset = reserve(host, stride_bytes * shape->count);
    const int32_t index = host->argc;
    int32_t status = host->cursor > host->scratch_offset ? fail_too_big(host) : host->build_error;
    if (status == KA_DONE) {
        t_SLOT *slot = &host->slots[index];
        *slot = *shape;
        slot->offset = static_cast<int32_t>(offset);
        slot->stride = static_cast<int32_t>(stride_bytes);
        memset(host->base + offset, 0, 4); /* read as a length even where there is no string: by a zString */
        status = put_values(host, slot, source);
        write_descriptor(host, index);
    }
    host->argc = index + 1;
    return status;
}

static int32_t add_numbers(ka_host *host, int32_t type, size_t size, int32_t count, int32_t passing,
                           const t_SOURCE *source)
{
    if (check_turn(host) != KA_DONE) return host->error.error_class;
    const t_SLOT shape = {type, passing, 0, 0, 0, count, false};
    return add_argument(host, &shape, static_cast<int64_t>(size), source);
}

int32_t ka_add_integers(ka_host *host, const int32_t *values, int32_t count, int32_t passing)
{
    const t_SOURCE source = {.integers = values};
    return add_numbers(host, DLL_INTEGER, sizeof *values, count, passing, &source);
}

int32_t ka_add_reals(ka_host *host, const t_DECIMAL *values, int32_t count, int32_t passing)
{
    const t_SOURCE source = {.reals = values};
    return add_numbers(host, DLL_REAL, sizeof *values, count, passing, &source);
}

int32_t ka_add_doubles(ka_host *host, const double *values, int32_t count, int32_t passing)
{
    const t_SOURCE source = {.doubles = values};
    return add_numbers(host, DLL_REAL, sizeof(t_DECIMAL), count, passing, &source);
}

static void fail_length(ka_host *host, int32_t element, int32_t length, int32_t room)
{
    char what[80];
    snprintf(what, sizeof what, "a string of %d bytes is longer than its room of %d", length, room);
    fail_value(host, element, length < 0 ? "a negative length" : what);
}

/* Length of the longest; -1 when a length is negative or does not fit the room. */
static int32_t longest_of(ka_host *host, const ka_text *values, int32_t count, int32_t room)
{
    int32_t longest = 0;
    for (int32_t i = 0; i < count; i++) {
        const bool fits = values[i].length >= 0 && (room == 0 || values[i].length <= room);
        if (!fits) {
            fail_length(host, i, values[i].length, room);
            return -1;
        }
        if (values[i].length > longest) longest = values[i].length;
    }
    return longest;
}

int32_t ka_add_strings(ka_host *host, const ka_text *values, int32_t count, int32_t room, int32_t passing)
{
    if (check_turn(host) != KA_DONE) return host->error.error_class;
    if (room < 0) return fail_value(host, 0, "a negative room");
    const int32_t longest = longest_of(host, values, count, room);
    if (longest < 0) return host->build_error;
    const t_SLOT shape = {DLL_STRING, passing, 0, room > 0 ? room : longest, 0, count, false};
    const t_SOURCE source = {.strings = values};
    return add_argument(host, &shape, (int64_t{4} + shape.room + 3) / 4 * 4, &source);
}

int32_t ka_add_integer(ka_host *host, int32_t value, int32_t passing)
{
    return ka_add_integers(host, &value, 1, passing);
}

int32_t ka_add_double(ka_host *host, double value, int32_t passing)
{
    return ka_add_doubles(host, &value, 1, passing);
}

int32_t ka_add_string(ka_host *host, const char *data, int32_t length, int32_t room, int32_t passing)
{
    const ka_text value = {data, length};
    return ka_add_strings(host, &value, 1, room, passing);
}

int32_t ka_add_real(ka_host *host, const char *text, int32_t passing)
{
    if (check_turn(host) != KA_DONE) return host->error.error_class;
    t_DECIMAL value;
    if (ka_real_from_text(text, static_cast<int32_t>(strlen(text)), &value) == KA_DONE)
        return ka_add_reals(host, &value, 1, passing);
    char what[80];
    snprintf(what, sizeof what, "\"%.40s\" is not a REAL", text);
    return fail_value(host, 0, what);
}
