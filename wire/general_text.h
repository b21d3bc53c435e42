/* SPDX-License-Identifier: MIT
 *
 * Text of a REAL in general form, from its decimals. */
#ifndef KA_WIRE_GENERAL_TEXT_H
#define KA_WIRE_GENERAL_TEXT_H

#include <stdint.h>
#include <string.h>

#include "wire/real_digits.h"
#include "wire/real_fault.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace wire {

/* 0.ddd... * 10^point, the last decimal not 0 unless it is the only one. From decimals on 16 characters can be read.
 */
struct t_SHOWN {
    const char *decimals;
    int length; /* 1 to 16 */
    int point;
    bool negative;
};

#ifdef __SSE2__
/* All decimals of a REAL in normal form, in room, of 17 characters; false if the record is any other, also where
   digits that are in use are above 99 or the first of them is 0. 6554 / 2^16 is above 1 / 10 by less than 1e-5. */
static inline bool show_all(const void *record, char *room, t_SHOWN *shown)
{
    uint32_t header;
    memcpy(&header, record, sizeof header);
    const int exponent = static_cast<int16_t>(header);
    const uint32_t sign = header >> 16 & 0xFF;
    const uint32_t count = header >> 24;
    const bool in_range = exponent >= REAL_EXPONENT_MIN && exponent <= REAL_EXPONENT_MAX;
    if (!in_range || sign > uint32_t{REAL_PLUS} || count - 1 > uint32_t{REAL_DIGITS_MAX} - 1) return false;
    const void *bytes = static_cast<const char *>(record) + REAL_DIGITS_AT;
    const __m128i in_use = _mm_srl_epi64(_mm_set1_epi32(-1), _mm_cvtsi32_si128(static_cast<int>(64 - 8 * count)));
    const __m128i digits = _mm_and_si128(_mm_loadl_epi64(static_cast<const __m128i *>(bytes)), in_use);
    const bool above_99 =
        (_mm_movemask_epi8(_mm_adds_epu8(digits, _mm_set1_epi8(0x7F - REAL_DIGIT_MAX))) & 0xFF) != 0;

    const __m128i pairs = _mm_unpacklo_epi8(digits, _mm_setzero_si128());
    const __m128i tens = _mm_mulhi_epu16(pairs, _mm_set1_epi16(6554));
    const __m128i ones = _mm_sub_epi16(pairs, _mm_mullo_epi16(tens, _mm_set1_epi16(10)));
    const __m128i decimals = _mm_or_si128(tens, _mm_slli_epi16(ones, 8));
    const int zeros = _mm_movemask_epi8(_mm_cmpeq_epi8(decimals, _mm_setzero_si128()));
    const uint32_t nonzero = ~static_cast<uint32_t>(zeros) & 0xFFFF;
    if (above_99 || (nonzero & 3) == 0) return false;
    void *to = room;
    _mm_storeu_si128(static_cast<__m128i *>(to), _mm_or_si128(decimals, _mm_set1_epi8('0')));
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
