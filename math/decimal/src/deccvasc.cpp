/* SPDX-License-Identifier: MIT
 *
 * Text to record: blanks, sign, mantissa, exponent, read from a field of known length that need not be terminated. */
#include "dec_vector.h"

static constexpr int decimals_max = 2 * ACCSIZE; /* significant decimals that the accumulator takes */
static constexpr int exponent_max = 999;

namespace {
struct t_READER {
    const char *at;
    const char *end;
    t_DECACC acc;
    int stored; /* significant decimals in acc */
    int places; /* decimals read after the point, zeros before the first stored one included */
    int exponent;
};
} // namespace

static bool is_decimal(char c)
{
    return c >= '0' && c <= '9';
}

static uint8_t read_sign(t_READER *r)
{
    if (r->at == r->end || (*r->at != '-' && *r->at != '+')) return DEC_POSITIVE;
    return *r->at++ == '-' ? DEC_NEGATIVE : DEC_POSITIVE;
}

/* Leading zeros are not stored. */
static void store_decimal(t_READER *r, int decimal)
{
    if (r->stored == 0 && decimal == 0) return;
    dec_put_decimal(r->acc.dec_dgts, r->stored, decimal);
    r->stored++;
}

/* KEPT: no digit is required: ".", "-", "e5" are zero. Test: Deccvasc.no_digit_is_required.
   KEPT: decimals after the 18th significant one are dropped, before the point too, where they ought to count in the
   exponent: 1234567890123456789 reads as 123456789012345678.
   Test: Deccvasc.integer_digits_past_the_eighteenth_are_dropped_without_a_place. */
static int read_mantissa(t_READER *r)
{
    bool point_seen = false;
    for (; r->at < r->end; r->at++) {
        if (*r->at == '.') {
            if (point_seen) return DEC_BAD_TEXT;
            point_seen = true;
            continue;
        }
        if (!is_decimal(*r->at)) break;
        if (r->stored == decimals_max) continue;
        if (point_seen) r->places++;
        store_decimal(r, *r->at - '0');
    }
    return DEC_OK;
}

/* Behind the letter. No digit is required. */
static int read_exponent(t_READER *r)
{
    const bool negative = read_sign(r) == DEC_NEGATIVE;
    int magnitude = 0;
    for (; r->at < r->end && is_decimal(*r->at); r->at++) {
        magnitude = magnitude * 10 + (*r->at - '0');
        if (magnitude > exponent_max) return DEC_BAD_EXPONENT;
    }
    r->exponent = negative ? -magnitude : magnitude;
    return DEC_OK;
}

/* KEPT: whatever character is last in the field is ignored, where one would expect a refusal: 1.5x is 1.5.
   Test: Deccvasc.stray_last_character_is_ignored.
   KEPT: of what follows a number, only the second character must be a blank, the rest is never looked at: "12x yz" is
   12. Test: Deccvasc.stray_character_before_a_blank_ends_the_number. */
static int read_end(const t_READER *r)
{
    return r->end - r->at <= 1 || r->at[1] == ' ' ? DEC_OK : DEC_BAD_TEXT;
}

static int read_number(t_READER *r)
{
    int code = read_mantissa(r);
    if (code != DEC_OK) return code;
    if (r->end - r->at > 1 && (*r->at == 'e' || *r->at == 'E')) {
        r->at++;
        code = read_exponent(r);
        if (code != DEC_OK) return code;
    }
    return read_end(r);
}

/* Moves the digit string one decimal towards the end; a decimal leaving the last byte is lost. */
static void shift_one_decimal(t_DECACC *acc)
{
    int carried = 0;
    for (uint8_t &digit : acc->dec_dgts) {
        const int tens = digit / 10 + carried;
        carried = digit % 10 * 10;
        digit = static_cast<uint8_t>(tens);
    }
}

/* The decimals stored are 0.ddd... * 10^(stored - places + exponent); an odd power needs one more zero in front. */
static void place_point(t_READER *r)
{
    const int64_t power = int64_t{r->stored} - r->places + r->exponent;
    const bool odd = power % 2 != 0;
    int count = (r->stored + 1) / 2;
    if (odd) {
        shift_one_decimal(&r->acc);
        if (r->stored % 2 == 0 && count < ACCSIZE) count++;
    }
    const int64_t exp = (odd ? power + 1 : power) / 2;
    /* Below any exponent that could be represented: only very many zeros after the point lead there. */
    r->acc.dec_exp = static_cast<int16_t>(exp < INT16_MIN ? INT16_MIN : exp);
    r->acc.dec_ndgts = static_cast<int8_t>(count);
}

#ifdef __SSE2__
/* ---- Numbers of up to 16 decimals, alone in the rest of the field: all characters at once ---------------------- */

static constexpr int window_size = 16;

/* From index n on: 16 bytes, of which the last n have all bits set. */
static constexpr uint8_t last_bytes[2 * window_size] = {
    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

/* The count characters at text, 4 or more, or the last 16 of them, at the end of the window; zero bytes before them.
   Nothing outside the text is read: two loads overlap, and the first is moved to where the second begins. */
static __m128i window_of(const char *text, int count)
{
    if (count >= window_size) return dec_load_sixteen(text + count - window_size);
    if (count >= 8) {
        const __m128i first = dec_load_eight(text);
        const __m128i last = dec_load_eight(text + count - 8);
        return _mm_unpacklo_epi64(_mm_sll_epi64(first, _mm_cvtsi32_si128(8 * (window_size - count))), last);
    }
    int first, last;
    memcpy(&first, text, sizeof first);
    memcpy(&last, text + count - 4, sizeof last);
    const __m128i moved = _mm_sll_epi32(_mm_cvtsi32_si128(first), _mm_cvtsi32_si128(8 * (8 - count)));
    return _mm_slli_si128(_mm_unpacklo_epi32(moved, _mm_cvtsi32_si128(last)), 8);
}

/* The bits of the bytes in the window that are decimals. */
static unsigned decimals_in(__m128i window)
{
    const __m128i values = _mm_sub_epi8(window, _mm_set1_epi8('0'));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_min_epu8(values, _mm_set1_epi8(9)), values)));
}

/* Sixteen decimals, zero bytes among the first of them allowed, as digits. */
static __m128i digits_of(__m128i decimals)
{
    const __m128i values = _mm_subs_epu8(decimals, _mm_set1_epi8('0'));
    const __m128i tens = _mm_mullo_epi16(_mm_and_si128(values, _mm_set1_epi16(0xFF)), _mm_set1_epi16(10));
    const __m128i digits = _mm_add_epi16(tens, _mm_srli_epi16(values, 8));
    return _mm_packus_epi16(digits, digits);
}

/* The digits front and the first seven of the others, rounded by the eighth. front is below 10, so a carry leaves it
   a digit; in the bytes of a vector it would go the wrong way. */
static int give_nine_digits(int exp, uint8_t pos, uint32_t front, __m128i others, t_DECIMAL *result)
{
    t_DECACC acc = {static_cast<int16_t>(exp), pos, ACCSIZE, {static_cast<uint8_t>(front)}};
    dec_store_eight(acc.dec_dgts + 1, others);
    return dec_give(&acc, 0, result);
}

/* What follows the sign, if it is 4 to 17 characters, all decimals but for a point perhaps, and the decimals at most
   16 and not all 0: gives the number and returns true. It is what the parser below would give: the point stands
   between two digits, so an odd number of places takes a zero behind them, and then the decimals, two by two, are the
   digits. A ninth digit is there if there are 16 decimals and that zero; its tens decide the rounding. */
static bool read_at_once(const char *text, int count, uint8_t pos, t_DECIMAL *result)
{
    for (; count > 1 && *text == '0'; text++)
        count--;
    if (count < 4 || count > window_size + 1) return false;
    const __m128i window = window_of(text, count);
    const unsigned points = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(window, _mm_set1_epi8('.'))));
    const unsigned in_text = count >= window_size ? 0xFFFF : 0xFFFFU << (window_size - count) & 0xFFFF;
    if (((decimals_in(window) ^ in_text) & in_text) != points || (points & (points - 1)) != 0) return false;

    int places = 0;
    __m128i decimals = window;
    if (points != 0) { /* what is before the point moves over it */
        if (count > window_size && !is_decimal(*text)) return false;
        places = window_size - 1 - __builtin_ctz(points);
        const __m128i moved = count > window_size ? dec_load_sixteen(text) : _mm_slli_si128(window, 1);
        const __m128i behind = dec_load_sixteen(last_bytes + places);
        decimals = _mm_or_si128(_mm_and_si128(behind, window), _mm_andnot_si128(behind, moved));
    } else if (count > window_size) {
        if (*text != '.') return false;
        places = window_size;
    }
    uint32_t front = 0;
    if (places % 2 != 0) {
        front = static_cast<uint32_t>(_mm_cvtsi128_si32(decimals)) & 0xF; /* of a decimal, or of a zero byte */
        decimals = _mm_srli_si128(decimals, 1);
    }
    const __m128i digits = digits_of(decimals);
    const int exp = DEC_DIGITS - (places + 1) / 2;
    if (front != 0) return give_nine_digits(exp + 1, pos, front, digits, result) == DEC_OK;
    const uint32_t others = dec_nonzero(digits);
    if (others == 0) return false;
    const int zeros = __builtin_ctz(others);
    const __m128i moved = _mm_srl_epi64(digits, _mm_cvtsi32_si128(8 * zeros));
    return dec_give_digits(exp - zeros, pos, moved, result) == DEC_OK;
}
#else
static bool read_at_once(const char *, int, uint8_t, t_DECIMAL *)
{
    return false;
}
#endif

int deccvasc(const char *field, int length, t_DECIMAL *result)
{
    result->dec_pos = DEC_NULL; /* for every return but the last */
    t_READER r = {};
    r.at = field;
    r.end = length > 0 ? field + length : field;
    while (r.at < r.end && *r.at == ' ')
        r.at++;
    if (r.at == r.end && length >= 0) return DEC_OK;

    const uint8_t pos = read_sign(&r);
    if (read_at_once(r.at, static_cast<int>(r.end - r.at), pos, result)) return DEC_OK;
    int code = read_number(&r);
    if (code != DEC_OK) return code;
    place_point(&r);
    code = dec_give(&r.acc, 0, result);
    result->dec_pos = pos; /* after rounding, which makes zeros positive */
    return code;
}
