/* SPDX-License-Identifier: MIT
 *
 * The REAL of a double's first decimals, where one product decides them: no ecvt that scales as the C library of
 * 32-bit x86 programs does could give others. Integers only, and small enough to be compiled into a loop. */
#ifndef KA_WIRE_SURE_REAL_H
#define KA_WIRE_SURE_REAL_H

#include <bit>

#include "wire/digit_groups.h"
#include "wire/real_digits.h"
#include "wire/tens.h"
#include "wire/vector_bytes.h"

namespace wire {

/* A record: exponent (16 bits), sign, count of digits; digits. */
struct t_REAL_WORDS {
    uint32_t header;
    t_REAL_DIGITS digits;
};

/* By words, as records are copied: what was stored in pieces is slow to load as one. */
static inline void store_real(const t_REAL_WORDS &real, void *record)
{
    memcpy(record, &real.header, 4);
    memcpy(static_cast<char *>(record) + 4, &real.digits.first, 4);
    memcpy(static_cast<char *>(record) + 8, &real.digits.last, 4);
}

/* 0.ddd... * 10^point, 15 decimals. */
struct t_FIFTEEN {
    uint64_t decimals;
    int point;
};

inline constexpr uint64_t FIFTEEN_LIMIT = 1000000000000000;

/* The exponent of base 100 is point / 2 rounded up, and an odd point leaves the tens of the first digit empty. So the
   digits are those of sixteen decimals, eight and eight: sixteen / 2^22 * 2882303761 / 2^36, which is a little less
   than sixteen / 10^8, is by less than 0.1 too small. */
struct t_EIGHTS {
    uint32_t first, last;
};

constexpr t_EIGHTS eights_of(t_FIFTEEN value)
{
    const uint32_t factor = 10 - 9 * (static_cast<uint32_t>(value.point) & 1);
    const uint64_t sixteen = uint64_t{static_cast<uint32_t>(value.decimals)} * factor +
                             (uint64_t{static_cast<uint32_t>(value.decimals >> 32) * factor} << 32);
    uint32_t first = static_cast<uint32_t>(uint64_t{static_cast<uint32_t>(sixteen >> 22)} * 2882303761 >> 36);
    uint32_t last = static_cast<uint32_t>(sixteen) - first * 100000000;
    if (last >= 100000000) {
        first++;
        last -= 100000000;
    }
    return {first, last};
}

constexpr uint32_t header_of(t_FIFTEEN value, bool negative, int count)
{
    const uint32_t exponent = static_cast<uint16_t>((value.point + 1) >> 1);
    const uint32_t sign = negative ? 0 : uint32_t{1} << 16;
    return exponent | sign | static_cast<uint32_t>(count) << 24;
}

constexpr t_REAL_WORDS real_of(t_FIFTEEN value, bool negative)
{
    const t_EIGHTS eights = eights_of(value);
    const t_REAL_DIGITS digits = {split_digits(eights.first), split_digits(eights.last)};
    return {header_of(value, negative, count_digits(digits)), digits};
}

/* The same stored, the digits all at once where the processor can do that. value is not 0. */
static inline void store_real_of(t_FIFTEEN value, bool negative, void *record)
{
#ifdef __SSE2__
    const t_EIGHTS eights = eights_of(value);
    const __m128i digits = digits_of_eights(_mm_unpacklo_epi32(_mm_cvtsi32_si128(static_cast<int>(eights.first)),
                                                               _mm_cvtsi32_si128(static_cast<int>(eights.last))));
    const uint32_t header = header_of(value, negative, 32 - __builtin_clz(nonzero_bytes(digits) & 0xFF));
    memcpy(record, &header, sizeof header);
    store_eight(static_cast<char *>(record) + 4, digits);
#else
    store_real(real_of(value, negative), record);
#endif
}

/* The bits in integer registers: 32-bit callers often store a parameter in two words, and what was stored in pieces
   is slow to load as one, which compilers do where a double is read. */
static inline uint64_t bits_of_parameter(double value)
{
    auto bits = std::bit_cast<uint64_t>(value);
    __asm__("" : "+r"(bits));
    return bits;
}

/* ecvt rounds as the program has set it, and so do the steps of its double in integers; what is here is about
   rounding to the nearest. */
static inline bool rounds_to_nearest()
{
    const volatile double one = 1;
    return one + 0x1p-60 == one - 0x1p-60;
}

/* magnitude is bits * 2^(exponent - 63), the highest bit set. Below, number is magnitude * 10^(count - point), and
   10^(count - 1) to 10^count; upper is number * 2^shift without its fraction. */
struct t_SCALED_UP {
    uint64_t upper;
    int shift;
    int point;
};

/* Without a branch: which of two powers of ten it is would often be guessed wrong. The upper one has the same
   exponent, and then the bits decide, or a larger one. */
static inline t_SCALED_UP scale_up(uint64_t bits, int exponent, int count)
{
    const int below = ten_below(exponent);
    const uint32_t same_exponent = static_cast<uint32_t>(ten_exponent(below + 1) - exponent - 1) >> 31;
    const uint32_t not_below = bits >= ten_bits(below + 1) ? 1 : 0;
    const int point = below + 1 + static_cast<int>(same_exponent & not_below);
    const uint64_t upper = upper_product(bits, ten_bits(count - point));
    return {upper, 62 - exponent - ten_exponent(count - point), point};
}

/* Whether the first decimals of the double with these bits, sign aside, are sure, and the double is 1e-130 to 1e126,
   as a REAL is; if so, they are stored. count is 15, or 9 at most; the decimals after them are 0.

   upper is too small: by less than 1 for the bits of the power below its 64th, 1 for the fraction of the product, and
   2 for the partial product that is left out at 32 bits, 4 in all.

   ecvt does not round number but one near it: its power of ten is rounded once for each factor of ten after the 27th
   (10^27 has 63 bits and is exact), 104 times at most; then the scaled value is rounded; all that in 64 bits, so by
   2^-64 of the value each time at most, together by less than 2^-57 of it; and then it is rounded to double, by 2^-53
   of it at most. (Only values below 1e-307 are scaled twice.) A tie that is farther from number than 2^-53 and 2^-57
   of it, and the errors of upper, has both on the same side. As parts of upper, each too small by less than 1, these
   are the two shifts and the 6 of the margin.

   It does not matter how ecvt finds its power of ten. Where it takes another one, number is so near to a power of ten
   that both round to it: 10.0 there is 1.0 here, or the other way round, and the point is the same.

   Of upper, then, the bits after the point are brought to the front of a word. With 15 decimals shift is 12 to 17;
   with 9 or less it is 32 or more, and all of upper's lower word counts as 1 unit of the higher one, of which 2^-53
   is not even that.
   Test: SureReal.* */
static inline bool find_sure_decimals(uint64_t word, int count, t_FIFTEEN *value)
{
    constexpr int least_exponent = -432; /* of 1e-130 */
    constexpr int most_exponent = 418;   /* of 1e126 */
    const int exponent = static_cast<int>(word >> 52 & 0x7FF) - 1023;
    if (exponent < least_exponent || exponent > most_exponent) return false;
    const t_SCALED_UP scaled = scale_up(word << 11 | uint64_t{1} << 63, exponent, count);

    const uint32_t high = static_cast<uint32_t>(scaled.upper >> 32);
    const uint32_t end = count == 15 ? static_cast<uint32_t>(scaled.upper) : high;
    const uint32_t margin = count == 15 ? (high >> 21) + (high >> 25) + 6 : 2;
    const int left = -scaled.shift & 31;
    const uint32_t fraction = end << left;
    const uint32_t distance = margin << left;
    if (fraction - 0x80000000 + distance <= 2 * distance) return false;

    uint64_t whole = (count == 15 ? scaled.upper : high) >> (scaled.shift & 31);
    whole += fraction >> 31;
    for (int i = count; i < 15; i++)
        whole *= 10;
    *value = whole == FIFTEEN_LIMIT ? t_FIFTEEN{whole / 10, scaled.point + 1} : t_FIFTEEN{whole, scaled.point};
    return rounds_to_nearest();
}

/* Zero has the point after its first decimal. */
static inline bool store_zero(uint64_t word, void *record)
{
    if (word << 1 != 0) return false;
    store_real(real_of({0, 1}, word != 0), record);
    return true;
}

/* Whether the REAL of the double with these bits is sure to be one that is in range; if so, it is stored. */
static inline bool store_sure_real(uint64_t word, int count, void *record)
{
    t_FIFTEEN value;
    if (!find_sure_decimals(word, count, &value)) return store_zero(word, record);
    if (value.point < -129 || value.point > 126) return false;
    store_real_of(value, word >> 63 != 0, record);
    return true;
}

} // namespace wire

#endif
