/* SPDX-License-Identifier: MIT
 *
 * Bytes in a vector register: how they are loaded, stored, moved and chosen without a branch. Only where the
 * processor has SSE2, as those of our 32-bit and 64-bit x86 programs do. */
#ifndef KA_WIRE_VECTOR_BYTES_H
#define KA_WIRE_VECTOR_BYTES_H

#ifdef __SSE2__
#include <emmintrin.h>
#include <stdint.h>

namespace wire {

/* Zeros in the upper half. */
static inline __m128i load_eight(const void *bytes)
{
    return _mm_loadl_epi64(static_cast<const __m128i *>(bytes));
}

static inline __m128i load_sixteen(const void *bytes)
{
    return _mm_loadu_si128(static_cast<const __m128i *>(bytes));
}

/* The lower half. */
static inline void store_eight(void *bytes, __m128i x)
{
    _mm_storel_epi64(static_cast<__m128i *>(bytes), x);
}

static inline void store_sixteen(void *bytes, __m128i x)
{
    _mm_storeu_si128(static_cast<__m128i *>(bytes), x);
}

/* From index 17 - n on: a mask of the first n bytes of 16. All of it is in one cache line. */
alignas(64) static constexpr uint8_t first_bytes[33] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                                                        0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

/* count is 0 to 17; 17 is as 16. */
static inline __m128i first_of(int count)
{
    return load_sixteen(first_bytes + 17 - count);
}

static inline __m128i chosen(__m128i mask, __m128i where_set, __m128i elsewhere)
{
    return _mm_or_si128(_mm_and_si128(mask, where_set), _mm_andnot_si128(mask, elsewhere));
}

/* A bit for each byte that is 0, the lowest for the first. */
static inline uint32_t zero_bytes(__m128i x)
{
    return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(x, _mm_setzero_si128())));
}

/* For each that is not. */
static inline uint32_t nonzero_bytes(__m128i x)
{
    return zero_bytes(x) ^ 0xFFFF;
}

static inline __m128i bits_of_bytes(int count)
{
    return _mm_cvtsi32_si128(8 * count);
}

/* The bytes count places on, zeros before them; count is 0 to 15. The shifts are those of either half by itself, and
   what goes from the first half into the second, for a count up to 8 and from 8 on; they give 0 where their own count
   is not 0 to 63, as a negative one is not. */
static inline __m128i moved_on(__m128i bytes, int count)
{
    const __m128i first_half = _mm_slli_si128(bytes, 8);
    const __m128i halves = _mm_sll_epi64(bytes, bits_of_bytes(count));
    const __m128i across = _mm_or_si128(_mm_srl_epi64(first_half, bits_of_bytes(8 - count)),
                                        _mm_sll_epi64(first_half, bits_of_bytes(count - 8)));
    return _mm_or_si128(halves, across);
}

/* Without the first count bytes, 0 to 8; zeros at the end. */
static inline __m128i moved_to_front(__m128i bytes, int count)
{
    return _mm_or_si128(_mm_srl_epi64(bytes, bits_of_bytes(count)),
                        _mm_sll_epi64(_mm_srli_si128(bytes, 8), bits_of_bytes(8 - count)));
}

} // namespace wire

#endif
#endif
