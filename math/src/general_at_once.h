/* SPDX-License-Identifier: MIT
 *
 * Text in general form of a REAL in normal form, all characters at once and nearly without branches, which the
 * processor would often guess wrong. Only where it has SSE2; elsewhere all texts take the long way. */
#ifndef KA_GENERAL_AT_ONCE_H
#define KA_GENERAL_AT_ONCE_H

#include "normal_digits.h"
#include "wire/general_text.h"
#include "wire/real_decimals.h"

#ifdef __SSE2__

/* 0.ddd... * 10^point: the decimals from the first on that is not 0, and zeros after the last of them that is not. */
struct t_GENERAL_DECIMALS {
    __m128i decimals;
    int length; /* 1 to 16 */
    int point;
};

/* The first places of the decimals, 1 to 15, rounded half away from zero: a 1 is added to the last of them that is
   not 9, and the nines after it become 0. False where all of them are 9. */
static inline bool round_decimals(__m128i *decimals, int places)
{
    const int up = _mm_movemask_epi8(_mm_cmpgt_epi8(*decimals, _mm_set1_epi8(4)));
    if ((up >> places & 1) == 0) {
        *decimals = _mm_and_si128(*decimals, wire::first_of(places));
        return true;
    }
    const int nines = _mm_movemask_epi8(_mm_cmpeq_epi8(*decimals, _mm_set1_epi8(9)));
    const int others = ~nines & ((1 << places) - 1);
    if (others == 0) return false;
    const int kept = 32 - __builtin_clz(static_cast<uint32_t>(others));
    const __m128i minus_one = _mm_xor_si128(wire::first_of(kept), wire::first_of(kept - 1));
    *decimals = _mm_sub_epi8(_mm_and_si128(*decimals, wire::first_of(kept)), minus_one);
    return true;
}

/* What dececvt gives for x in normal form, without the zeros at the end. False for any other x, and where nines would
   become a new first decimal. ndigit is 1 or more. Test: MGcvt.is_what_the_long_way_gives. */
static inline bool show_decimals(const t_DECIMAL *x, int ndigit, t_GENERAL_DECIMALS *shown)
{
    __m128i digits;
    if (!load_normal(x, &digits)) return false;
    __m128i decimals = wire::decimals_of(digits);
    uint32_t nonzero = wire::nonzero_bytes(decimals);
    const int places = (ndigit < 16 ? ndigit : 16) + static_cast<int>(~nonzero & 1);
    if (nonzero >> places != 0) {
        if (!round_decimals(&decimals, places)) return false;
        nonzero = wire::nonzero_bytes(decimals);
    }
    const int zeros = static_cast<int>(~nonzero & 1);
    *shown = {wire::moved_to_front(decimals, zeros), 32 - __builtin_clz(nonzero) - zeros, 2 * x->dec_exp - zeros};
    return true;
}

/* Exactly count characters, 2 to 18: those of text, then last, which is the seventeenth, and a 0 as the last one of
   all. */
static inline void put_text(char *out, __m128i text, char last, int count)
{
    char all[16];
    wire::store_sixteen(all, text);
    if (count > 16) {
        memcpy(out, all, 16);
        out[16] = last;
    } else {
        wire::put_characters(out, all, count);
    }
    out[count - 1] = '\0';
}

/* put_general for what has no more than 16 decimals, the zeros in front of the first and those up to the point
   counted. False for any other. All forms are a row of decimals with a point in it, or after it, where it is not
   shown; E and the exponent follow those of scientific form. */
static inline bool put_general_at_once(const t_GENERAL_DECIMALS &shown, bool negative, int ndigit, char *out)
{
    const int point = shown.point;
    const bool scientific = ndigit < (point >= 0 ? point : shown.length - point);
    const bool below_one = point <= 0 && !scientific;
    const int zeros = below_one ? 1 - point : 0;
    const int whole = below_one || scientific ? 1 : point;
    const int total = zeros + shown.length > whole ? zeros + shown.length : whole;
    if (total > 16) return false;
    const int used = total > whole ? total + 1 : total;

    const __m128i row = wire::characters_of(wire::moved_on(shown.decimals, zeros));
    *out = '-';
    out += negative ? 1 : 0;
    put_text(out, wire::with_point(row, whole), static_cast<char>(_mm_extract_epi16(row, 7) >> 8), used + 1);
    if (scientific) *wire::put_exponent(out + used, point - 1) = '\0';
    return true;
}

#endif
#endif
