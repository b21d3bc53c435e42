/* SPDX-License-Identifier: MIT
 *
 * Integers to records, exactly. The most negative integer of each width means null. */
#include "dec_vector.h"

#ifdef __SSE2__
/* magnitude is not 0. Its digits are at most five: the eighth to fourth from the end of halves, at most 42 in the
   first. They move to the front. */
static int give_magnitude(uint32_t magnitude, uint8_t pos, t_DECIMAL *result)
{
    const uint32_t high = magnitude / dec_half_base;
    const __m128i digits = dec_digits_of_halves(high, magnitude - high * dec_half_base);
    const int zeros = __builtin_ctz(dec_nonzero(digits));
    return dec_give_digits(DEC_DIGITS - zeros, pos, _mm_srl_epi64(digits, _mm_cvtsi32_si128(8 * zeros)), result);
}
#else
static int give_magnitude(uint32_t magnitude, uint8_t pos, t_DECIMAL *result)
{
    uint8_t digits[5] = {}; /* 2^32 has 5 digits; filled from the end, where zeros are not kept */
    int first = 5;
    for (; magnitude > 0; magnitude /= DEC_BASE)
        digits[--first] = static_cast<uint8_t>(magnitude % DEC_BASE);
    const int exp = 5 - first;
    const int count = dec_trim(digits + first, exp);
    *result = {};
    result->dec_exp = static_cast<int16_t>(exp);
    result->dec_pos = pos;
    result->dec_ndgts = static_cast<int8_t>(count);
    memcpy(result->dec_dgts, digits + first, static_cast<size_t>(count));
    return DEC_OK;
}
#endif

int deccvfix(int32_t value, t_DECIMAL *result)
{
    if (value == 0) return dec_give_copy(&c_dec_zero, result);
    return value < 0 ? give_magnitude(0U - static_cast<uint32_t>(value), DEC_NEGATIVE, result)
                     : give_magnitude(static_cast<uint32_t>(value), DEC_POSITIVE, result);
}

int deccvint16(int16_t value, t_DECIMAL *result)
{
    return value == INT16_MIN ? dec_give_null(result) : deccvfix(value, result);
}

int deccvint32(int32_t value, t_DECIMAL *result)
{
    return value == INT32_MIN ? dec_give_null(result) : deccvfix(value, result);
}
