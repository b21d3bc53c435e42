/* SPDX-License-Identifier: MIT
 *
 * Records to integers, truncated toward zero. Null gives the most negative integer of the width. */
#include "dec_int.h"
#include "wire/real_digits.h"

/* Fraction digits play no part: 2147483647.99 is in range.
   KEPT: a zero with sign byte 0 and an exponent above 0, other than the limit's 5, is out of range, since deccmp puts
   it below every negative value of another exponent: the double -0.0 becomes such a zero, and then no integer.
   Test: Dectoint32.zero_with_sign_byte_0_and_another_exponent_than_the_limit_does_not_fit. */
static bool in_range(const t_DECIMAL *value)
{
    t_DECIMAL whole = *value;
    whole.dec_ndgts = static_cast<int8_t>(dec_count(value) < value->dec_exp ? dec_count(value) : value->dec_exp);
    return dec_isnegative(value) ? deccmp(&whole, &c_int32_min) != -1 : deccmp(&whole, &c_int32_max) != 1;
}

/* For records of any kind. */
[[gnu::noinline]] static int convert_by_digits(const t_DECIMAL *value, int32_t *result)
{
    if (value->dec_exp > 0 && !in_range(value)) return DEC_OVERFLOW;
    /* Unsigned, since the magnitude of the most negative integer needs it. A value in range with digits has at most
       5 integer digits; a zero may pass with any exponent. */
    uint32_t magnitude = 0;
    for (int i = 0; i < value->dec_exp; i++)
        magnitude = magnitude * DEC_BASE + static_cast<uint32_t>(dec_digit(value, i));
    *result = static_cast<int32_t>(dec_isnegative(value) ? 0U - magnitude : magnitude);
    return DEC_OK;
}

/* A record whose integer part has at most four digits needs no look at the limits: they have five. These digits are
   moved to the end of a word of four, and added with their weights, whatever they are: 255 * 1010101 is below 2^32. A
   zero, and a sign byte that is not a sign, are left to the rules above; a record with exponent 0 gives 0. The shift
   is done in two halves: one of 32 bits is undefined. */
static inline bool convert_at_once(const t_DECIMAL *value, int32_t *result)
{
    constexpr int most = 4;
    const int exp = value->dec_exp;
    const int count = static_cast<uint8_t>(value->dec_ndgts); /* one below 0 is above 8 */
    if (count < 1 || count > DEC_DIGITS || exp < 0 || exp > most || value->dec_pos > DEC_POSITIVE) return false;
    const uint32_t digits = wire::load_digits(value->dec_dgts, count).first;
    const int half = 4 * (most - exp);
    const uint32_t magnitude = wire::join_digits(digits << half << half);
    const uint32_t flip = value->dec_pos - 1U; /* all bits set for a negative value: ~magnitude + 1 */
    *result = static_cast<int32_t>((magnitude ^ flip) - flip);
    return true;
}

int dectofix(const t_DECIMAL *value, int32_t *result)
{
    return convert_at_once(value, result) ? int{DEC_OK} : convert_by_digits(value, result);
}

/* KEPT: -32768 is stored like any other value, although it also means null, so the two look the same.
   Test: Dectoint16.limits_are_accepted. */
int dectoint16(const t_DECIMAL *value, int16_t *result)
{
    if (dec_isnull(value)) {
        *result = INT16_MIN;
        return DEC_OK;
    }
    int32_t wide = 0;
    if (dectofix(value, &wide) != DEC_OK || wide < INT16_MIN || wide > INT16_MAX) return DEC_OVERFLOW;
    *result = static_cast<int16_t>(wide);
    return DEC_OK;
}

int dectoint32(const t_DECIMAL *value, int32_t *result)
{
    if (convert_at_once(value, result)) return DEC_OK;
    if (dec_isnull(value)) {
        *result = INT32_MIN;
        return DEC_OK;
    }
    return convert_by_digits(value, result);
}
