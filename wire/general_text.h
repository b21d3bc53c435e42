/* SPDX-License-Identifier: MIT
 *
 * Text of a REAL in general form, from its decimals. */
#ifndef KA_WIRE_GENERAL_TEXT_H
#define KA_WIRE_GENERAL_TEXT_H

#include <stdint.h>
#include <string.h>

#include "wire/real_decimals.h"
#include "wire/real_fault.h"

namespace wire {

/* 0.ddd... * 10^point, the last decimal not 0 unless it is the only one. */
struct t_SHOWN {
    const char *decimals;
    int length; /* 1 to 16 */
    int point;
    bool negative;
};

#ifdef __SSE2__
/* All decimals of a REAL in normal form, in room, of 16 characters; false if the record is any other, also where
   digits that are in use are above 99 or the first of them is 0. */
static inline bool show_all(const void *record, char *room, t_SHOWN *shown)
{
    uint32_t header;
    memcpy(&header, record, sizeof header);
    const int exponent = static_cast<int16_t>(header);
    const uint32_t sign = header >> 16 & 0xFF;
    const uint32_t count = header >> 24;
    const bool in_range = exponent >= REAL_EXPONENT_MIN && exponent <= REAL_EXPONENT_MAX;
    if (!in_range || sign > uint32_t{REAL_PLUS} || count - 1 > uint32_t{REAL_DIGITS_MAX} - 1) return false;
    const __m128i digits = load_in_use(static_cast<const char *>(record) + REAL_DIGITS_AT, static_cast<int>(count));
    const __m128i decimals = decimals_of(digits);
    const uint32_t nonzero = nonzero_bytes(decimals);
    if (digits_above_99(digits) != 0 || (nonzero & 3) == 0) return false;
    store_sixteen(room, characters_of(decimals));
    const int lead = static_cast<int>(~nonzero & 1);
    *shown = {room + lead, 32 - __builtin_clz(nonzero) - lead, 2 * exponent - lead, sign == uint32_t{REAL_MINUS}};
    return true;
}
#else
static inline bool show_all(const void *, char *, t_SHOWN *)
{
    return false;
}
#endif

/* Exactly count characters, 0 to 16, in few steps: the second overlaps the first. Returns their end. */
static inline char *put_characters(char *out, const char *characters, int count)
{
    if (count >= 8) {
        memcpy(out, characters, 8);
        memcpy(out + count - 8, characters + count - 8, 8);
    } else if (count >= 4) {
        memcpy(out, characters, 4);
        memcpy(out + count - 4, characters + count - 4, 4);
    } else if (count > 0) {
        out[0] = characters[0];
        out[count / 2] = characters[count / 2];
        out[count - 1] = characters[count - 1];
    }
    return out + count;
}

static inline char *put_zeros(char *out, int count)
{
    while (count-- > 0)
        *out++ = '0';
    return out;
}

/* E+dd, at least two decimals. The magnitude of exponent is below 1000. */
static inline char *put_exponent(char *out, int exponent)
{
    const int magnitude = exponent < 0 ? -exponent : exponent;
    *out++ = 'E';
    *out++ = exponent < 0 ? '-' : '+';
    if (magnitude >= 100) *out++ = static_cast<char>('0' + magnitude / 100);
    *out++ = static_cast<char>('0' + magnitude / 10 % 10);
    *out++ = static_cast<char>('0' + magnitude % 10);
    return out;
}

/* d.dddE+dd */
static inline char *put_scientific(const t_SHOWN *shown, char *out)
{
    *out++ = shown->decimals[0];
    if (shown->length > 1) {
        *out++ = '.';
        out = put_characters(out, shown->decimals + 1, shown->length - 1);
    }
    return put_exponent(out, shown->point - 1);
}

/* ddd.ddd */
static inline char *put_fixed(const t_SHOWN *shown, char *out)
{
    if (shown->point <= 0) {
        *out++ = '0';
        *out++ = '.';
        out = put_zeros(out, -shown->point);
        return put_characters(out, shown->decimals, shown->length);
    }
    if (shown->point >= shown->length) {
        out = put_characters(out, shown->decimals, shown->length);
        return put_zeros(out, shown->point - shown->length);
    }
    out = put_characters(out, shown->decimals, shown->point);
    *out++ = '.';
    return put_characters(out, shown->decimals + shown->point, shown->length - shown->point);
}

/* In the form that shows no more than ndigit decimals, zeros after the point counted; terminated. */
static inline void put_general(const t_SHOWN *shown, int ndigit, char *out)
{
    const int point = shown->point;
    const bool scientific = point >= 0 ? ndigit < point : ndigit < shown->length - point;
    if (shown->negative) *out++ = '-';
    out = scientific ? put_scientific(shown, out) : put_fixed(shown, out);
    *out = '\0';
}

} // namespace wire

#endif
