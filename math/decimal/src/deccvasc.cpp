/* SPDX-License-Identifier: MIT
 *
 * Text to record: blanks, sign, mantissa, exponent, read from a field of known length that need not be terminated. */
#include "dec_vector.h"
#include "wire/text_digits.h"

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
/* The digits front and the first seven of the others, rounded by the eighth. front is below 10, so a carry leaves it
   a digit; in the bytes of a vector it would go the wrong way. */
static int give_nine_digits(const wire::t_TEXT_DIGITS *number, uint8_t pos, t_DECIMAL *result)
{
    t_DECACC acc = {static_cast<int16_t>(number->exponent + 1), pos, ACCSIZE, {static_cast<uint8_t>(number->front)}};
    wire::store_eight(acc.dec_dgts + 1, number->digits);
    return dec_give(&acc, 0, result);
}

/* What follows the sign, if it is 1 to 16 decimals and a point perhaps: gives the number and returns true. It is what
   the parser above would give: both take two decimals for a digit, and a ninth one is there if there are 16
   decimals and an odd number of them after the point; its tens decide the rounding. */
static bool read_at_once(const t_READER *r, uint8_t pos, t_DECIMAL *result)
{
    wire::t_TEXT_DIGITS number;
    if (!wire::find_text_digits(r->at, static_cast<int>(r->end - r->at), &number)) return false;
    if (number.front != 0) return give_nine_digits(&number, pos, result) == DEC_OK;
    wire::store_text_digits(number, pos == DEC_NEGATIVE, result);
    return true;
}
#else
static bool read_at_once(const t_READER *, uint8_t, t_DECIMAL *)
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
    if (read_at_once(&r, pos, result)) return DEC_OK;
    int code = read_number(&r);
    if (code != DEC_OK) return code;
    place_point(&r);
    code = dec_give(&r.acc, 0, result);
    result->dec_pos = pos; /* after rounding, which makes zeros positive */
    return code;
}
