/* SPDX-License-Identifier: MIT
 *
 * Integers to records, exactly. The most negative integer of each width means null. */
#include "dec_vector.h"

#ifdef __SSE2__
/* magnitude is not 0. Its digits are at most five: the eighth to fourth from the end of halves, at most 42 in the
   first. They move to the front. */
static inline void give_magnitude(uint32_t magnitude, uint32_t pos, t_DECIMAL *result)
{
    const uint32_t high = magnitude / dec_half_base;
    const __m128i digits = wire::digits_of_two_eights(high, magnitude - high * dec_half_base);
    const uint32_t nonzero = dec_nonzero(digits);
    const auto zeros = static_cast<uint32_t>(__builtin_ctz(nonzero));
    const uint32_t count = 32 - static_cast<uint32_t>(__builtin_clz(nonzero)) - zeros;
    const uint32_t header = (DEC_DIGITS - zeros) | pos << 16 | count << 24;
    memcpy(result, &header, sizeof header);
    wire::store_eight(result->dec_dgts, _mm_srl_epi64(digits, _mm_cvtsi32_si128(static_cast<int>(8 * zeros))));
}
#else
static void give_magnitude(uint32_t magnitude, uint32_t pos, t_DECIMAL *result)
{
    uint8_t digits[5] = {}; /* 2^32 has 5 digits; filled from the end, where zeros are not kept */
    int first = 5;
    for (; magnitude > 0; magnitude /= DEC_BASE)
        digits[--first] = static_cast<uint8_t>(magnitude % DEC_BASE);
    const int exp = 5 - first;
    const int count = dec_trim(digits + first, exp);
    *result = {};
    result->dec_exp = static_cast<int16_t>(exp);
    result->dec_pos = static_cast<uint8_t>(pos);
    result->dec_ndgts = static_cast<int8_t>(count);
    memcpy(result->dec_dgts, digits + first, static_cast<size_t>(count));
}
#endif

/* The sign without a branch, which would be guessed wrong as often as signs change: sign has all bits set where
   value is negative, whose magnitude is ~value + 1; and DEC_NEGATIVE is 0. */
static inline int give_integer(int32_t value, t_DECIMAL *result)
{
    if (value == 0) return dec_give_copy(&c_dec_zero, result);
    const auto sign = static_cast<uint32_t>(value >> 31);
    give_magnitude((static_cast<uint32_t>(value) ^ sign) - sign, DEC_POSITIVE + sign, result);
    return DEC_OK;
}

int deccvfix(int32_t value, t_DECIMAL *result)
{
    return give_integer(value, result);
}

/* KEPT: the most negative integer is the integer form of null, and gives null; m_cv_int gives the value.
   Test: Deccvint32.most_negative_integer_is_null. */
int deccvint16(int16_t value, t_DECIMAL *result)
{
    return value == INT16_MIN ? dec_give_null(result) : give_integer(value, result);
}

int deccvint32(int32_t value, t_DECIMAL *result)
{
    return value == INT32_MIN ? dec_give_null(result) : give_integer(value, result);
}
