/* SPDX-License-Identifier: MIT
 *
 * Numbers of eight decimals into digits of a REAL, several at once. Only where the processor has SSE2, as those of
 * our 32-bit and 64-bit x86 programs do. */
#ifndef KA_WIRE_SPLIT_EIGHTS_H
#define KA_WIRE_SPLIT_EIGHTS_H

#ifdef __SSE2__
#include <emmintrin.h>
#include <stdint.h>

namespace wire {

/* Four digits for each word of eight decimals. 3518437209 / 2^45 is above 1 / 10^4 by less than 2e-14, and 5243 /
   2^19 above 1 / 100 by less than 3e-7: too little to reach the next quotient. */
static inline __m128i split_eights(__m128i eights)
{
    const __m128i factor = _mm_set1_epi32(static_cast<int>(3518437209));
    const __m128i even = _mm_srli_epi64(_mm_mul_epu32(eights, factor), 45);
    const __m128i odd = _mm_srli_epi64(_mm_mul_epu32(_mm_srli_epi64(eights, 32), factor), 45);
    const __m128i quotients = _mm_or_si128(even, _mm_slli_epi64(odd, 32));
    const __m128i rests = _mm_sub_epi16(eights, _mm_mullo_epi16(quotients, _mm_set1_epi16(10000)));
    const __m128i fours = _mm_or_si128(quotients, _mm_slli_epi32(rests, 16));
    const __m128i hundreds = _mm_srli_epi16(_mm_mulhi_epu16(fours, _mm_set1_epi16(5243)), 3);
    const __m128i ones = _mm_sub_epi16(fours, _mm_mullo_epi16(hundreds, _mm_set1_epi16(100)));
    return _mm_or_si128(hundreds, _mm_slli_epi16(ones, 8));
}

} // namespace wire

#endif
#endif
