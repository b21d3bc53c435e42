/* SPDX-License-Identifier: MIT
 *
 * The digits of a record as eight bytes of a vector register, in their order in memory, for the operations that work
 * on all of them at once. Only where the processor has SSE2, as those of our 32-bit and 64-bit x86 programs do;
 * elsewhere the operations go digit by digit, as they do everywhere for digits that are not usual. */
#ifndef KA_DEC_VECTOR_H
#define KA_DEC_VECTOR_H

#include "dec_int.h"

#ifdef __SSE2__
#include <emmintrin.h>

constexpr uint32_t dec_half_base = 100000000; /* eight decimals: four digits */
constexpr uint32_t dec_quad_base = 10000;     /* four */

/* From index DEC_DIGITS - n on: a mask of the first n digits. */
alignas(16) inline constexpr uint8_t dec_first_digits[2 * DEC_DIGITS] = {0xFF, 0xFF, 0xFF, 0xFF,
                                                                         0xFF, 0xFF, 0xFF, 0xFF};

inline __m128i dec_load_eight(const void *bytes)
{
    return _mm_loadl_epi64(static_cast<const __m128i *>(bytes));
}

inline void dec_store_eight(void *bytes, __m128i x)
{
    _mm_storel_epi64(static_cast<__m128i *>(bytes), x);
}

/* The digits in use; the others are 0. */
inline __m128i dec_load(const t_DECIMAL *x, int count)
{
    return _mm_and_si128(dec_load_eight(x->dec_dgts), dec_load_eight(dec_first_digits + DEC_DIGITS - count));
}

/* Those of a, then those of b. */
inline __m128i dec_load_both(const t_DECIMAL *a, const t_DECIMAL *b)
{
    return _mm_unpacklo_epi64(dec_load(a, dec_count(a)), dec_load(b, dec_count(b)));
}

/* Whether both first digits are not 0, and no digit is above 99: 28 more than 99 leave the highest bit 0. */
inline bool dec_areusual(__m128i both)
{
    const __m128i large = _mm_adds_epu8(both, _mm_set1_epi8(0x7F - (DEC_BASE - 1)));
    const __m128i zeros = _mm_cmpeq_epi8(both, _mm_setzero_si128());
    constexpr int firsts = 1 | 1 << DEC_DIGITS;
    return (_mm_movemask_epi8(large) | (_mm_movemask_epi8(zeros) & firsts)) == 0;
}

/* A bit for each digit that is not 0, the lowest for the first. */
inline uint32_t dec_nonzero(__m128i digits)
{
    return (static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(digits, _mm_setzero_si128()))) & 0xFF) ^ 0xFF;
}

/* Gives digits, the first not 0, and their count without zeros at the end. The header is stored as one word. */
inline int dec_give_digits(int exp, uint8_t pos, __m128i digits, t_DECIMAL *result)
{
    int16_t dec_exp;
    const int code = dec_set_exponent(exp, &dec_exp);
    const auto count = static_cast<uint32_t>(32 - __builtin_clz(dec_nonzero(digits)));
    const uint32_t header = static_cast<uint16_t>(dec_exp) | uint32_t{pos} << 16 | count << 24;
    memcpy(result, &header, sizeof header);
    dec_store_eight(result->dec_dgts, digits);
    return code;
}

/* Two digits as one number of four decimals. 256 * 25600 is 100 * 2^16: the upper half of the product of 256 * first
   is 100 * first. */
inline __m128i dec_quads_of_digits(__m128i digits)
{
    const __m128i hundreds = _mm_mulhi_epu16(_mm_slli_epi16(digits, 8), _mm_set1_epi16(256 * DEC_BASE));
    return _mm_add_epi16(hundreds, _mm_srli_epi16(digits, 8));
}

/* The other way, for quads below 10^4: 5243 / 2^19 is above 1 / 100 by less than 3e-7, times 10^4 less than the 1 /
   100 by which any quotient is at least below the next integer. first + 256 * (quad - 100 * first) is 256 * quad -
   25599 * first. */
inline __m128i dec_digits_of_quads(__m128i quads)
{
    const __m128i firsts = _mm_srli_epi16(_mm_mulhi_epu16(quads, _mm_set1_epi16(5243)), 3);
    return _mm_sub_epi16(_mm_slli_epi16(quads, 8), _mm_mullo_epi16(firsts, _mm_set1_epi16(256 * DEC_BASE - 1)));
}

/* The digits of high * 10^8 + low, both below 10^8.
   The quotients: 3518437209 / 2^45 is above 1 / 10^4 by less than 2e-14; times 10^8 that is less than the 1 / 10^4 by
   which any quotient is at least below the next integer. */
inline __m128i dec_digits_of_halves(uint32_t high, uint32_t low)
{
    const __m128i halves =
        _mm_unpacklo_epi64(_mm_cvtsi32_si128(static_cast<int>(high)), _mm_cvtsi32_si128(static_cast<int>(low)));
    const __m128i firsts = _mm_srli_epi64(_mm_mul_epu32(halves, _mm_set1_epi32(static_cast<int>(3518437209U))), 45);
    const __m128i seconds = _mm_sub_epi32(halves, _mm_mul_epu32(firsts, _mm_set1_epi32(dec_quad_base)));
    const __m128i quads = _mm_or_si128(firsts, _mm_slli_epi64(seconds, 32));
    const __m128i pairs = dec_digits_of_quads(quads);
    return _mm_packs_epi32(pairs, pairs);
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
