/* SPDX-License-Identifier: MIT
 *
 * The digits of a REAL in a vector register, their decimals, sixteen at once, and the characters of these. Only where
 * the processor has SSE2, as those of our 32-bit and 64-bit x86 programs do. */
#ifndef KA_WIRE_REAL_DECIMALS_H
#define KA_WIRE_REAL_DECIMALS_H

#include "wire/real_fault.h"
#include "wire/vector_bytes.h"

#ifdef __SSE2__

namespace wire {

/* Eight digits, of which count are in use, 0 to 8; the others are 0. */
static inline __m128i load_in_use(const void *digits, int count)
{
    return _mm_and_si128(load_eight(digits), first_of(count));
}

/* A bit for each that is: 28 more than 99 leave the highest bit 0. */
static inline uint32_t digits_above_99(__m128i digits)
{
    return static_cast<uint32_t>(_mm_movemask_epi8(_mm_adds_epu8(digits, _mm_set1_epi8(0x7F - REAL_DIGIT_MAX))));
}

/* Two decimals for each of eight digits: tens + 256 * (digit - 10 * tens) is 256 * digit - 2559 * tens. 103 / 1024 is
   above 1 / 10 by less than 6e-4; times 99 that is less than the 1 / 10 by which any quotient is at least below the
   next integer. */
static inline __m128i decimals_of(__m128i digits)
{
    const __m128i zero = _mm_setzero_si128();
    const __m128i tens = _mm_srli_epi16(_mm_mullo_epi16(_mm_unpacklo_epi8(digits, zero), _mm_set1_epi16(103)), 10);
    return _mm_sub_epi16(_mm_unpacklo_epi8(zero, digits), _mm_mullo_epi16(tens, _mm_set1_epi16(2559)));
}

static inline __m128i characters_of(__m128i decimals)
{
    return _mm_or_si128(decimals, _mm_set1_epi8('0'));
}

/* A point after the first whole characters, 0 to 16; the last one of all is lost. */
static inline __m128i with_point(__m128i characters, int whole)
{
    const __m128i point_and_rest = chosen(first_of(whole + 1), _mm_set1_epi8('.'), _mm_slli_si128(characters, 1));
    return chosen(first_of(whole), characters, point_and_rest);
}

} // namespace wire

#endif
#endif
