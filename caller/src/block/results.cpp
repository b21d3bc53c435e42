/* SPDX-License-Identifier: MIT
 *
 * Reads what a call gave back. Where it lies and how much it is comes from the library's own record of them; of the
 * block only the values are read, each once, and made safe. */
#include "results.h"

#include <string.h>

#include "base/copy.h"
#include "host/owner.h"
#include "segment.h"
#include "wire/kinds.h"
#include "wire/sound_reals.h"

static bool is_argument(const ka_host *host, int32_t argument)
{
    return host->life.state == STATE_CALLED && argument >= 1 && argument < host->building.argc;
}

int32_t ka_gives_back(const ka_host *host, int32_t argument)
{
    COME_IN(host, 0);
    return is_argument(host, argument) && host->arguments[argument].gives_back ? 1 : 0;
}

void take_results(ka_host *host)
{
    for (int32_t i = 1; i < host->building.argc; i++) {
        t_ARGUMENT *argument = &host->arguments[i];
        argument->gives_back = argument->passing == KA_BY_REFERENCE && still_by_reference(host, i);
    }
}

[[gnu::cold, gnu::noinline]] static const t_ARGUMENT *refuse_result(ka_host *host, int32_t argument, int32_t type,
                                                                    int32_t count)
{
    if (take_turn(host, TURN_GET) != KA_DONE) {
        /* the error is stored */
    } else if (!is_argument(host, argument)) {
        fail(host, KA_ARGUMENT, "\"%s\" was called without an argument %d", host->function, argument);
    } else if (!ka_gives_back(host, argument)) {
        fail(host, KA_ARGUMENT, "\"%s\" gives nothing back in argument %d", host->function, argument);
    } else if (host->arguments[argument].type != type) {
        fail(host, KA_ARGUMENT, "argument %d of \"%s\" is %s, not %s", argument, host->function,
             wire::type_name(host->arguments[argument].type), wire::type_name(type));
    } else {
        fail(host, KA_ARGUMENT, "argument %d of \"%s\" has %d elements, not %d", argument, host->function,
             host->arguments[argument].count, count);
    }
    if (host->error.error_class == KA_ARGUMENT) host->error.argument = argument;
    return nullptr;
}

/* The argument, or null with the error stored. There are arguments in the one state only in which it is the turn of
   their results. Compiled into each function: for one value it is most of the work. */
[[gnu::always_inline]] static inline const t_ARGUMENT *find_result(ka_host *host, int32_t argument, int32_t type,
                                                                   int32_t count)
{
    const bool found = is_argument(host, argument) && host->arguments[argument].gives_back &&
                       host->arguments[argument].type == type && count >= 0 &&
                       count <= host->arguments[argument].count;
    return found ? &host->arguments[argument] : refuse_result(host, argument, type, count);
}

static const char *element(const ka_host *host, const t_ARGUMENT *argument, int32_t index)
{
    return host->segment.base + argument->offset + static_cast<ptrdiff_t>(index) * argument->stride;
}

int32_t read_integer(const ka_host *host, const t_ARGUMENT *argument, int32_t index)
{
    int32_t value;
    memcpy(&value, element(host, argument, index), sizeof value);
    return value;
}

int32_t ka_get_integers(ka_host *host, int32_t argument, int32_t *values, int32_t count)
{
    COME_IN(host, visit.refusal);
    const t_ARGUMENT *found = find_result(host, argument, DLL_INTEGER, count);
    if (!found) return host->error.error_class;
    memcpy(values, element(host, found, 0), static_cast<size_t>(count) * sizeof *values);
    return KA_DONE;
}

static_assert(wire::REAL_SIZE == sizeof(t_DECIMAL) && wire::REAL_DIGITS_MAX == DEC_DIGITS);
static_assert(wire::REAL_SIGN_AT == offsetof(t_DECIMAL, dec_pos) &&
              wire::REAL_COUNT_AT == offsetof(t_DECIMAL, dec_ndgts));
static_assert(wire::REAL_DIGITS_AT == offsetof(t_DECIMAL, dec_dgts) && wire::REAL_DIGIT_MAX == DEC_BASE - 1);
static_assert(wire::REAL_PLUS == DEC_POSITIVE && wire::REAL_MINUS == DEC_NEGATIVE && wire::REAL_NULL == DEC_NULL);
static_assert(wire::REAL_EXPONENT_MIN == DEC_EXP_MIN && wire::REAL_EXPONENT_MAX == DEC_EXP_MAX);

t_DECIMAL read_real(const ka_host *host, const t_ARGUMENT *argument, int32_t index)
{
    t_DECIMAL real;
    wire::copy_sound_reals(element(host, argument, index), &real, 1);
    return real;
}

int32_t ka_get_reals(ka_host *host, int32_t argument, t_DECIMAL *values, int32_t count)
{
    COME_IN(host, visit.refusal);
    const t_ARGUMENT *found = find_result(host, argument, DLL_REAL, count);
    if (!found) return host->error.error_class;
    wire::copy_sound_reals(element(host, found, 0), values, count);
    return KA_DONE;
}

static int32_t get_doubles(ka_host *host, int32_t argument, double *values, int32_t count)
{
    constexpr int32_t most = 16;
    const t_ARGUMENT *found = find_result(host, argument, DLL_REAL, count);
    if (!found) return host->error.error_class;
    for (int32_t from = 0; from < count; from += most) {
        t_DECIMAL reals[most];
        const int32_t copied = count - from < most ? count - from : most;
        wire::copy_sound_reals(element(host, found, from), reals, copied);
        for (int32_t i = 0; i < copied; i++) {
            values[from + i] = __builtin_nan("");
            if (reals[i].dec_pos != DEC_NULL) dectodbl(&reals[i], &values[from + i]);
        }
    }
    return KA_DONE;
}

int32_t ka_get_doubles(ka_host *host, int32_t argument, double *values, int32_t count)
{
    COME_IN(host, visit.refusal);
    return get_doubles(host, argument, values, count);
}

/* Compiled into its callers, too. */
[[gnu::always_inline]] static inline int32_t copy_string(const ka_host *host, const t_ARGUMENT *argument,
                                                         int32_t index, char *buffer, int32_t size)
{
    const char *from = element(host, argument, index);
    int32_t length;
    memcpy(&length, from, sizeof length);
    if (length < 0) length = 0;
    if (length > argument->room) length = argument->room;
    const int32_t copied = length < size ? length : size;
    if (copied > 0) copy_characters(buffer, from + 4, static_cast<size_t>(copied));
    return length;
}

int32_t read_string(const ka_host *host, const t_ARGUMENT *argument, int32_t index, char *buffer, int32_t size)
{
    return copy_string(host, argument, index, buffer, size);
}

int32_t ka_get_string(ka_host *host, int32_t argument, int32_t index, char *buffer, int32_t size, int32_t *length)
{
    COME_IN(host, visit.refusal);
    const t_ARGUMENT *found = find_result(host, argument, DLL_STRING, index < INT32_MAX ? index + 1 : index);
    if (!found) return host->error.error_class;
    if (index < 0) return fail(host, KA_ARGUMENT, "index is %d; it must not be below 0", index);
    if (size < 0) return fail(host, KA_ARGUMENT, "size is %d; it must not be below 0", size);
    *length = copy_string(host, found, index, buffer, size);
    return KA_DONE;
}

/* ---- Texts one behind the other -------------------------------------------------------------------------------- */

int32_t ka_get_strings(ka_host *host, int32_t argument, char *buffer, int32_t size, int32_t *offsets, int32_t count)
{
    COME_IN(host, visit.refusal);
    const t_ARGUMENT *found = find_result(host, argument, DLL_STRING, count);
    if (!found) return host->error.error_class;
    if (size < 0) return fail(host, KA_ARGUMENT, "size is %d; it must not be below 0", size);
    int32_t end = 0; /* their rooms are parts of the segment */
    for (int32_t i = 0; i < count; i++) {
        const int32_t used = end < size ? end : size;
        offsets[i] = end;
        end += copy_string(host, found, i, buffer + used, size - used);
    }
    offsets[count] = end;
    return KA_DONE;
}

static int32_t real_text(const ka_host *host, const t_ARGUMENT *argument, int32_t index, char text[KA_REAL_TEXT])
{
    const t_DECIMAL real = read_real(host, argument, index);
    return real.dec_pos == DEC_NULL ? 0 : static_cast<int32_t>(strlen(ka_real_to_text(&real, text)));
}

/* A text can be longer than its REAL. */
int32_t ka_get_real_texts(ka_host *host, int32_t argument, char *buffer, int32_t size, int32_t *offsets,
                          int32_t count)
{
    COME_IN(host, visit.refusal);
    const t_ARGUMENT *found = find_result(host, argument, DLL_REAL, count);
    if (!found) return host->error.error_class;
    if (size < 0) return fail(host, KA_ARGUMENT, "size is %d; it must not be below 0", size);
    int64_t end = 0;
    for (int32_t i = 0; i < count; i++) {
        char text[KA_REAL_TEXT];
        const int32_t length = real_text(host, found, i, text);
        offsets[i] = static_cast<int32_t>(end);
        if (length > 0 && end + length <= size) memcpy(buffer + end, text, static_cast<size_t>(length));
        end += length;
    }
    offsets[count] = static_cast<int32_t>(end);
    if (end <= INT32_MAX) return KA_DONE;
    fail(host, KA_ARGUMENT, "the texts of argument %d of \"%s\" have more than %d bytes", argument, host->function,
         INT32_MAX);
    host->error.argument = argument;
    return KA_ARGUMENT;
}
