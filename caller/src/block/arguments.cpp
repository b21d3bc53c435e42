/* SPDX-License-Identifier: MIT
 *
 * The arguments of a call: each one's value goes straight into the segment, its descriptor likewise, and what the
 * library needs to know of it later into the host's record. When a call does not fit, nothing more is written, but
 * the size is still summed up, so that the error can name it. */
#include <stdio.h>
#include <string.h>

#include "base/copy.h"
#include "host/host.h"
#include "host/owner.h"
#include "segment.h"
#include "wire/sure_pair.h"
#include "wire/sure_real.h"

namespace {
/* Where the values of an argument are; one of the pointers is used. */
struct t_SOURCE {
    const int32_t *integers = nullptr;
    const t_DECIMAL *reals = nullptr;
    const double *doubles = nullptr;
    const ka_text *strings = nullptr;
    const ka_text *numbers = nullptr; /* REALs in decimal text */
    int32_t *rounded = nullptr;       /* the first of them that was rounded; may be null */
};
} // namespace

/* ---- Errors ---------------------------------------------------------------------------------------------------- */

/* Kept for ka_call: another function may fail before it. */
static int32_t keep_error(ka_host *host)
{
    host->build_failure = host->error;
    return host->building.error = host->error.error_class;
}

static int32_t fail_too_big(ka_host *host)
{
    const int64_t needed = host->building.cursor + host->options.scratch_bytes;
    fail(host, KA_TOO_BIG, "the call of \"%s\" needs a segment of %lld bytes, this one has %d", host->function,
         static_cast<long long>(needed), host->options.segment_bytes);
    host->error.needed_bytes = needed;
    return keep_error(host);
}

/* The first error of a call is kept. place is the element, or empty. */
static int32_t fail_argument(ka_host *host, const char *place, const char *what)
{
    if (host->building.error != KA_DONE) return host->building.error;
    fail(host, KA_ARGUMENT, "argument %d of \"%s\"%s: %s", host->building.argc, host->function, place, what);
    host->error.argument = host->building.argc;
    return keep_error(host);
}

static int32_t fail_element(ka_host *host, int32_t element, const char *what)
{
    char place[32];
    snprintf(place, sizeof place, ", element %d", element);
    return fail_argument(host, place, what);
}

static int32_t fail_negative(ka_host *host, const char *name, int32_t value)
{
    char text[80];
    snprintf(text, sizeof text, "%s is %d; it must not be below 0", name, value);
    return fail_argument(host, "", text);
}

static int32_t fail_passing(ka_host *host, int32_t passing)
{
    char text[80];
    snprintf(text, sizeof text, "passing is %d; it is KA_BY_VALUE (%d) or KA_BY_REFERENCE (%d)", passing, KA_BY_VALUE,
             KA_BY_REFERENCE);
    return fail_argument(host, "", text);
}

/* ---- Elements -------------------------------------------------------------------------------------------------- */

static int32_t put_integers(ka_host *host, const t_ARGUMENT *argument, const int32_t *values)
{
    char *to = host->segment.base + argument->offset;
    if (argument->count == 1)
        memcpy(to, values, sizeof *values); /* in one step */
    else
        memcpy(to, values, static_cast<size_t>(argument->count) * sizeof *values);
    return KA_DONE;
}

/* One by one: processors differ in how well they copy many bytes to an address that is no multiple of 16. */
static int32_t put_reals(ka_host *host, const t_ARGUMENT *argument, const t_DECIMAL *values)
{
    char *to = host->segment.base + argument->offset;
    for (int32_t i = 0; i < argument->count; i++, to += sizeof *values) {
        if (values[i].dec_pos == DEC_NULL) return fail_element(host, i, "a null REAL");
        memcpy(to, &values[i], sizeof *values);
    }
    return KA_DONE;
}

static int32_t fail_length(ka_host *host, int32_t element, int32_t length, int32_t room)
{
    char what[80];
    if (length < 0)
        snprintf(what, sizeof what, "length is %d; it must not be below 0", length);
    else
        snprintf(what, sizeof what, "a string of %d bytes is longer than its room of %d", length, room);
    return fail_element(host, element, what);
}

static int32_t fail_number(ka_host *host, int32_t element, const ka_text *text)
{
    if (text->length < 0) return fail_length(host, element, text->length, 0);
    char what[80];
    snprintf(what, sizeof what, "\"%.*s\" is not a REAL", text->length < 40 ? text->length : 40, text->data);
    return fail_element(host, element, what);
}

static int32_t put_numbers(ka_host *host, const t_ARGUMENT *argument, const ka_text *values, int32_t *rounded)
{
    char *to = host->segment.base + argument->offset;
    int32_t first = -1;
    for (int32_t i = 0; i < argument->count; i++, to += sizeof(t_DECIMAL)) {
        t_DECIMAL real;
        int32_t exact;
        if (ka_real_read(values[i].data, values[i].length, &real, &exact) != KA_DONE)
            return fail_number(host, i, &values[i]);
        memcpy(to, &real, sizeof real);
        if (!exact && first < 0) first = i;
    }
    if (rounded) *rounded = first;
    return KA_DONE;
}

static int32_t put_double(ka_host *host, int32_t element, double value, char *to)
{
    t_DECIMAL real;
    if (deccvdbl(value, &real) != DEC_OK) {
        char what[64];
        snprintf(what, sizeof what, "%g cannot be held by a REAL", value);
        return fail_element(host, element, what);
    }
    memcpy(to, &real, sizeof real);
    return KA_DONE;
}

/* Two at a time, where that needs no more than a few steps; one by one the same comes out. */
static int32_t put_doubles(ka_host *host, const t_ARGUMENT *argument, const double *values)
{
    const bool in_pairs = wire::rounds_to_nearest();
    char *to = host->segment.base + argument->offset;
    int32_t i = 0;
    int32_t status = KA_DONE;
    for (; in_pairs && i < argument->count - 1 && status == KA_DONE; i += 2, to += 2 * sizeof(t_DECIMAL)) {
        if (wire::store_sure_pair(values + i, to, to + sizeof(t_DECIMAL))) continue;
        status = put_double(host, i, values[i], to);
        if (status == KA_DONE) status = put_double(host, i + 1, values[i + 1], to + sizeof(t_DECIMAL));
    }
    for (; i < argument->count && status == KA_DONE; i++, to += sizeof(t_DECIMAL))
        status = put_double(host, i, values[i], to);
    return status;
}

/* The room after a string is cleared, so that nothing of an earlier call shows; its last word first, in which the
   string may end: mostly that is all. */
static int32_t put_strings(ka_host *host, const t_ARGUMENT *argument, const ka_text *values)
{
    const size_t room = static_cast<size_t>(argument->stride) - 4;
    char *element = host->segment.base + argument->offset + 4;
    for (int32_t i = 0; i < argument->count; i++, element += room + 4) {
        // NOLINTNEXTLINE(clang-analyzer-core.uninitialized.Assign): values has as many elements
        const size_t length = static_cast<size_t>(values[i].length);
        memcpy(element - 4, &values[i].length, 4);
        if (room > 0) memset(element + room - 4, 0, 4);
        if (length > 0) copy_characters(element, values[i].data, length);
        if (room - length > 3) memset(element + length, 0, room - length);
    }
    return KA_DONE;
}

static int32_t put_values(ka_host *host, const t_ARGUMENT *argument, const t_SOURCE *source)
{
    if (source->integers) return put_integers(host, argument, source->integers);
    if (source->reals) return put_reals(host, argument, source->reals);
    if (source->doubles) return put_doubles(host, argument, source->doubles);
    if (source->strings) return put_strings(host, argument, source->strings);
    if (source->numbers) return put_numbers(host, argument, source->numbers, source->rounded);
    return KA_DONE;
}

/* ---- Arguments ------------------------------------------------------------------------------------------------- */

/* A call that is too big goes on being summed up; any other error ends the building. */
static int32_t begin_unusual_argument(ka_host *host)
{
    if (take_turn(host, TURN_ADD) != KA_DONE) return host->error.error_class;
    if (host->building.error == KA_ARGUMENT) return KA_ARGUMENT;
    if (host->building.argc <= DLL_MAX_ARGS) return KA_DONE;
    fail(host, KA_ARGUMENT, "a call of \"%s\" with more than %d arguments", host->function, DLL_MAX_ARGS);
    host->error.argument = host->building.argc;
    return keep_error(host);
}

/* Mostly it is the turn of arguments, as it is in no other state, and nothing was wrong. */
static inline int32_t begin_argument(ka_host *host)
{
    const bool usual =
        host->life.state == STATE_BUILDING && host->building.error == KA_DONE && host->building.argc <= DLL_MAX_ARGS;
    return usual ? int32_t{KA_DONE} : begin_unusual_argument(host);
}

/* An argument of no elements still gets a word of its own: its address must lie inside the segment. The sum stops
   long before it could overflow. */
static int64_t reserve(ka_host *host, int64_t size)
{
    const int64_t offset = host->building.cursor;
    if (host->building.cursor < int64_t{1} << 61) host->building.cursor += size > 4 ? size : 4;
    return offset;
}

/* A process to which no call was sent has no state of its own, and can be replaced. */
static bool makes_room(ka_host *host)
{
    return host->building.error == KA_DONE && !host->process.called &&
           grow_segment(host, host->building.cursor + host->options.scratch_bytes);
}

static int32_t add_argument(ka_host *host, const t_ARGUMENT *shape, int64_t stride_bytes, const t_SOURCE *source)
{
    if (shape->count < 0) return fail_negative(host, "count", shape->count);
    if (shape->passing != KA_BY_VALUE && shape->passing != KA_BY_REFERENCE) return fail_passing(host, shape->passing);
    const int64_t offset = reserve(host, stride_bytes * shape->count);
    const int32_t index = host->building.argc;
    const bool fits = host->building.cursor <= host->segment.scratch_offset || makes_room(host);
    int32_t status = fits ? host->building.error : fail_too_big(host);
    if (status == KA_DONE) {
        t_ARGUMENT *argument = &host->arguments[index];
        *argument = {shape->type,
                     shape->passing,
                     static_cast<int32_t>(offset),
                     shape->room,
                     static_cast<int32_t>(stride_bytes),
                     shape->count,
                     false};
        memset(host->segment.base + offset, 0, 4); /* read as a length even where there is no string: by a zString */
        status = put_values(host, argument, source);
        write_descriptor(host, index);
    }
    host->building.argc = index + 1;
    return status;
}

static int32_t add_numbers(ka_host *host, int32_t type, size_t size, int32_t count, int32_t passing,
                           const t_SOURCE *source)
{
    if (begin_argument(host) != KA_DONE) return host->error.error_class;
    const t_ARGUMENT shape = {type, passing, 0, 0, 0, count, false};
    return add_argument(host, &shape, static_cast<int64_t>(size), source);
}

/* What the exported functions below share: between those a call goes through a table. */
static inline int32_t add_integers(ka_host *host, const int32_t *values, int32_t count, int32_t passing)
{
    const t_SOURCE source = {.integers = values};
    return add_numbers(host, DLL_INTEGER, sizeof *values, count, passing, &source);
}

static inline int32_t add_reals(ka_host *host, const t_DECIMAL *values, int32_t count, int32_t passing)
{
    const t_SOURCE source = {.reals = values};
    return add_numbers(host, DLL_REAL, sizeof *values, count, passing, &source);
}

static inline int32_t add_doubles(ka_host *host, const double *values, int32_t count, int32_t passing)
{
    const t_SOURCE source = {.doubles = values};
    return add_numbers(host, DLL_REAL, sizeof(t_DECIMAL), count, passing, &source);
}

static inline int32_t add_real_texts(ka_host *host, const ka_text *values, int32_t count, int32_t passing,
                                     int32_t *rounded)
{
    const t_SOURCE source = {.numbers = values, .rounded = rounded};
    if (rounded) *rounded = -1;
    return add_numbers(host, DLL_REAL, sizeof(t_DECIMAL), count, passing, &source);
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

static int32_t add_strings(ka_host *host, const ka_text *values, int32_t count, int32_t room, int32_t passing)
{
    if (begin_argument(host) != KA_DONE) return host->error.error_class;
    if (room < 0) return fail_negative(host, "room", room);
    const int32_t longest = longest_of(host, values, count, room);
    if (longest < 0) return host->building.error;
    const t_ARGUMENT shape = {DLL_STRING, passing, 0, room > 0 ? room : longest, 0, count, false};
    const t_SOURCE source = {.strings = values};
    return add_argument(host, &shape, (int64_t{4} + shape.room + 3) / 4 * 4, &source);
}

/* ---- Many values, and one -------------------------------------------------------------------------------------- */

int32_t ka_add_integers(ka_host *host, const int32_t *values, int32_t count, int32_t passing)
{
    COME_IN(host, visit.refusal);
    return add_integers(host, values, count, passing);
}

int32_t ka_add_integer(ka_host *host, int32_t value, int32_t passing)
{
    COME_IN(host, visit.refusal);
    return add_integers(host, &value, 1, passing);
}

int32_t ka_add_reals(ka_host *host, const t_DECIMAL *values, int32_t count, int32_t passing)
{
    COME_IN(host, visit.refusal);
    return add_reals(host, values, count, passing);
}

int32_t ka_add_real_texts(ka_host *host, const ka_text *values, int32_t count, int32_t passing, int32_t *rounded)
{
    COME_IN(host, visit.refusal);
    return add_real_texts(host, values, count, passing, rounded);
}

int32_t ka_add_real(ka_host *host, const char *text, int32_t passing)
{
    COME_IN(host, visit.refusal);
    const ka_text value = {text, static_cast<int32_t>(strlen(text))};
    return add_real_texts(host, &value, 1, passing, nullptr);
}

int32_t ka_add_doubles(ka_host *host, const double *values, int32_t count, int32_t passing)
{
    COME_IN(host, visit.refusal);
    return add_doubles(host, values, count, passing);
}

int32_t ka_add_double(ka_host *host, double value, int32_t passing)
{
    COME_IN(host, visit.refusal);
    return add_doubles(host, &value, 1, passing);
}

int32_t ka_add_strings(ka_host *host, const ka_text *values, int32_t count, int32_t room, int32_t passing)
{
    COME_IN(host, visit.refusal);
    return add_strings(host, values, count, room, passing);
}

int32_t ka_add_string(ka_host *host, const char *data, int32_t length, int32_t room, int32_t passing)
{
    COME_IN(host, visit.refusal);
    const ka_text value = {data, length};
    return add_strings(host, &value, 1, room, passing);
}
