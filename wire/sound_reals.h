/* SPDX-License-Identifier: MIT
 *
 * REALs out of the block, made safe: one that is unsound is read as null. Four records at a time where the processor
 * has SSE2, as those of our 32-bit and 64-bit x86 programs do. */
#ifndef KA_WIRE_SOUND_REALS_H
#define KA_WIRE_SOUND_REALS_H

#include "wire/real_fault.h"
#include "wire/vector_bytes.h"

namespace wire {

static constexpr int32_t FOUR_REALS = 4 * REAL_SIZE; /* bytes */
static_assert(FOUR_REALS == 3 * 16);

static constexpr t_REAL_BITS null_real = {uint32_t{REAL_NULL} << 16, 0};

static inline t_REAL_BITS sound_or_null(t_REAL_BITS bits)
{
    return is_sound(bits) ? bits : null_real;
}

#ifdef __SSE2__
/* For four records: what is added to each word, so that exponents begin at 0, and then the
   largest that each byte may be. Digits that are not in use count, too. */
struct t_REAL_BOUNDS {
    alignas(16) int16_t added[FOUR_REALS / 2];
    alignas(16) uint8_t largest[FOUR_REALS];
};

constexpr t_REAL_BOUNDS make_real_bounds()
{
    t_REAL_BOUNDS bounds = {};
    for (int i = 0; i < FOUR_REALS; i++)
        bounds.largest[i] = REAL_DIGIT_MAX;
    for (int i = 0; i < FOUR_REALS; i += REAL_SIZE) {
        bounds.added[i / 2] = -REAL_EXPONENT_MIN;
        bounds.largest[i] = REAL_EXPONENT_MAX - REAL_EXPONENT_MIN;
        bounds.largest[i + 1] = 0;
        bounds.largest[i + REAL_SIGN_AT] = REAL_PLUS;
        bounds.largest[i + REAL_COUNT_AT] = REAL_DIGITS_MAX;
    }
    return bounds;
}

static constexpr t_REAL_BOUNDS real_bounds = make_real_bounds();

/* Copies 16 bytes, and reads them once: a module may go on writing. The compiler must not load them again. */
static inline __m128i copy_16(const char *from, char *to)
{
    __m128i bytes = load_sixteen(from);
    __asm__("" : "+x"(bytes));
    store_sixteen(to, bytes);
    return bytes;
}

/* By how much bytes, those of the four records from first on, are above what they may be. */
static inline __m128i excess(__m128i bytes, int first)
{
    const __m128i words = _mm_add_epi16(bytes, load_sixteen(real_bounds.added + first / 2));
    return _mm_subs_epu8(words, load_sixteen(real_bounds.largest + first));
}

/* Copies four records, and tells whether all are surely sound: no byte is above its bound, and none whose count is
   not 0 begins with a digit 0, which is the byte after the count. Others may be sound, where digits that are not in
   use are above 99. Test: SoundReals.* */
static inline bool copy_four_reals(const char *from, char *to)
{
    const __m128i a = copy_16(from, to);
    const __m128i b = copy_16(from + 16, to + 16);
    const __m128i c = copy_16(from + 32, to + 32);
    const __m128i any = _mm_or_si128(_mm_or_si128(excess(a, 0), excess(b, 16)), excess(c, 32));
    const uint32_t first_zeros = zero_bytes(a) | zero_bytes(b) << 16;
    const uint32_t last_zeros = zero_bytes(c);
    constexpr uint32_t counts = 1U << 3 | 1U << 15 | 1U << 27;
    constexpr uint32_t last_count = 1U << (39 - 32);
    const uint32_t leading =
        (first_zeros >> 1 & ~first_zeros & counts) | (last_zeros >> 1 & ~last_zeros & last_count);
    return zero_bytes(any) == 0xFFFF && leading == 0;
}
#else
static inline bool copy_four_reals(const char *from, char *to)
{
    memcpy(to, from, FOUR_REALS);
    return false;
}
#endif

/* count records. Those that are not surely sound are looked at where they were copied to. */
static inline void copy_sound_reals(const void *records, void *copies, int32_t count)
{
    const char *from = static_cast<const char *>(records);
    char *to = static_cast<char *>(copies);
    for (; count >= 4; count -= 4, from += FOUR_REALS, to += FOUR_REALS) {
        if (copy_four_reals(from, to)) continue;
        for (char *real = to; real < to + FOUR_REALS; real += REAL_SIZE)
            store_real_bits(sound_or_null(load_real_bits(real)), real);
    }
    for (; count > 0; count--, from += REAL_SIZE, to += REAL_SIZE)
        store_real_bits(sound_or_null(load_real_bits(from)), to);
}

} // namespace wire

#endif
