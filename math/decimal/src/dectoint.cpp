/* SPDX-License-Identifier: MIT
 *
 * Records to integers, truncated toward zero. Null gives the most negative integer of the width. */
#include "dec_int.h"

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
static int convert_by_digits(const t_DECIMAL *value, int32_t *result)
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

/* A record whose integer part has at most four digits needs no look at the limits: they have five. The digits are
   added with weights modulo 2^32, as one by one, whatever their values; a zero, and a sign byte that is no sign, are
   left to the rules above. */
int dectofix(const t_DECIMAL *value, int32_t *result)
{
    constexpr int most = 4;
    constexpr uint32_t weights[most] = {1, DEC_BASE, DEC_BASE * DEC_BASE, DEC_BASE * DEC_BASE * DEC_BASE};
    if (dec_iszero(value) || value->dec_exp < 1 || value->dec_exp > most || value->dec_pos > DEC_POSITIVE)
        return convert_by_digits(value, result);
    const int whole = value->dec_exp;
    uint32_t magnitude = value->dec_dgts[0] * weights[whole - 1];
    for (int i = 1; i < dec_count(value) && i < whole; i++)
        magnitude += value->dec_dgts[i] * weights[whole - 1 - i];
    *result = static_cast<int32_t>(dec_isnegative(value) ? 0U - magnitude : magnitude);
    return DEC_OK;
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
    if (dec_isnull(value)) {
        *result = INT32_MIN;
        return DEC_OK;
    }
    return dectofix(value, result);
}
