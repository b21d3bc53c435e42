/* SPDX-License-Identifier: MIT
 *
 * The digits of a record as eight bytes of a vector register, in their order in memory, for the operations that work
 * on all of them at once. Only where the processor has SSE2, as those of our 32-bit and 64-bit x86 programs do;
 * elsewhere the operations go digit by digit, as they do everywhere for digits that are not usual. */
#ifndef KA_DEC_VECTOR_H
#define KA_DEC_VECTOR_H

#include "dec_int.h"
#include "wire/digit_groups.h"
#include "wire/real_decimals.h"

#ifdef __SSE2__

constexpr uint32_t dec_half_base = 100000000; /* eight decimals: four digits */
constexpr uint32_t dec_quad_base = 10000;     /* four */

/* The digits in use; the others are 0. */
inline __m128i dec_load(const t_DECIMAL *x, int count)
{
    return wire::load_in_use(x->dec_dgts, count);
}

/* Those of a, then those of b. */
inline __m128i dec_load_both(const t_DECIMAL *a, const t_DECIMAL *b)
{
    return _mm_unpacklo_epi64(dec_load(a, dec_count(a)), dec_load(b, dec_count(b)));
}

/* Whether both first digits are not 0, and no digit is above 99. */
inline bool dec_areusual(__m128i both)
{
    constexpr uint32_t firsts = 1 | 1 << DEC_DIGITS;
    return (wire::digits_above_99(both) | (wire::zero_bytes(both) & firsts)) == 0;
}

/* A bit for each digit that is not 0, the lowest for the first. */
inline uint32_t dec_nonzero(__m128i digits)
{
    return wire::nonzero_bytes(digits) & 0xFF;
}

/* Gives digits, the first not 0, and their count without zeros at the end. The header is stored as one word. */
inline int dec_give_digits(int exp, uint8_t pos, __m128i digits, t_DECIMAL *result)
{
    int16_t dec_exp;
    const int code = dec_set_exponent(exp, &dec_exp);
    const auto count = static_cast<uint32_t>(32 - __builtin_clz(dec_nonzero(digits)));
    const uint32_t header = static_cast<uint16_t>(dec_exp) | uint32_t{pos} << 16 | count << 24;
    memcpy(result, &header, sizeof header);
    wire::store_eight(result->dec_dgts, digits);
    return code;
}

struct t_HALVES {
    uint32_t high;
    uint32_t low; /* below 10^8 */
};

/* number, below 2^55, in two halves, without a division of 64 bits, which 32-bit processors do not have. The first
   estimate of high leaves out the last 23 bits of number and what follows the point of 2^58 / 10^8: both together
   take less than 0.09 + 0.07 off it, so that it is right or 1 too small. */
inline t_HALVES dec_halves(uint64_t number)
{
    constexpr uint32_t reciprocal = (uint64_t{1} << 58) / dec_half_base;
    const auto high = static_cast<uint32_t>(uint64_t{static_cast<uint32_t>(number >> 23)} * reciprocal >> 35);
    const uint32_t low = static_cast<uint32_t>(number) - high * dec_half_base;
    return low < dec_half_base ? t_HALVES{high, low} : t_HALVES{high + 1, low - dec_half_base};
}

#endif
#endif
