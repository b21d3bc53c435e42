/* SPDX-License-Identifier: MIT
 *
 * Digits of a REAL in a vector register, joined and split: two are a number of four decimals, a quad, and four are
 * one of eight, an eight. Only where the processor has SSE2, as those of our 32-bit and 64-bit x86 programs do. */
#ifndef KA_WIRE_DIGIT_GROUPS_H
#define KA_WIRE_DIGIT_GROUPS_H

#ifdef __SSE2__
#include <emmintrin.h>
#include <stdint.h>

namespace wire {

/* 256 * 25600 is 100 * 2^16: the upper half of the product of 256 * first is 100 * first. */
static inline __m128i quads_of_digits(__m128i digits)
{
    const __m128i hundreds = _mm_mulhi_epu16(_mm_slli_epi16(digits, 8), _mm_set1_epi16(25600));
    return _mm_add_epi16(hundreds, _mm_srli_epi16(digits, 8));
}

static inline __m128i eights_of_digits(__m128i digits)
{
    return _mm_madd_epi16(quads_of_digits(digits), _mm_set1_epi32(1 << 16 | 10000));
}

/* Words below 10^4 / 100: 5243 / 2^19 is above 1 / 100 by less than 3e-7, times 10^4 less than the 1 / 100 by which
   any quotient is at least below the next integer. */
static inline __m128i hundreds_of(__m128i words)
{
    return _mm_srli_epi16(_mm_mulhi_epu16(words, _mm_set1_epi16(5243)), 3);
}

/* first + 256 * (quad - 100 * first) is 256 * quad - 25599 * first. */
static inline __m128i digits_of_quads(__m128i quads)
{
    const __m128i firsts = hundreds_of(quads);
    return _mm_sub_epi16(_mm_slli_epi16(quads, 8), _mm_mullo_epi16(firsts, _mm_set1_epi16(25599)));
}

/* The first and the third word, below 10^8, / 10^4: 3518437209 / 2^45 is above 1 / 10^4 by less than 2e-14; times
   10^8 that is less than the 1 / 10^4 by which any quotient is at least below the next integer. */
static inline __m128i myriads_of(__m128i eights)
{
    return _mm_srli_epi64(_mm_mul_epu32(eights, _mm_set1_epi32(static_cast<int>(3518437209))), 45);
}

/* Four digits for each of four eights. */
static inline __m128i digits_of_eights(__m128i eights)
{
    const __m128i odd = myriads_of(_mm_srli_epi64(eights, 32));
    const __m128i firsts = _mm_or_si128(myriads_of(eights), _mm_slli_epi64(odd, 32));
    const __m128i seconds = _mm_sub_epi16(eights, _mm_mullo_epi16(firsts, _mm_set1_epi16(10000)));
    return digits_of_quads(_mm_or_si128(firsts, _mm_slli_epi32(seconds, 16)));
}

/* The same for two; their digits in both halves. */
static inline __m128i digits_of_two_eights(uint32_t first, uint32_t second)
{
    const __m128i eights =
        _mm_unpacklo_epi64(_mm_cvtsi32_si128(static_cast<int>(first)), _mm_cvtsi32_si128(static_cast<int>(second)));
    const __m128i firsts = myriads_of(eights);
    const __m128i seconds = _mm_sub_epi32(eights, _mm_mul_epu32(firsts, _mm_set1_epi32(10000)));
    const __m128i pairs = digits_of_quads(_mm_or_si128(firsts, _mm_slli_epi64(seconds, 32)));
    return _mm_packs_epi32(pairs, pairs);
}

} // namespace wire

#endif
#endif
