/* SPDX-License-Identifier: MIT
 *
 * The REALs of two doubles at once, where both are sure (sure_real.h) and from 1e-8 to 1e15, as most are: for loops
 * over arrays. In doubles, two to a register: 32-bit programs have no product of 64 bits. */
#ifndef KA_WIRE_SURE_PAIR_H
#define KA_WIRE_SURE_PAIR_H

#include <stdint.h>
#include <string.h>

#include "wire/digit_groups.h"
#include "wire/tens.h"
#include "wire/vector_bytes.h"

#ifdef __SSE2__

namespace wire {

/* 10^0 to 10^22 are exact as doubles. Each is taken apart into its first 26 bits and the others, to be multiplied
   without rounding. */
struct t_PAIR_TENS {
    double parts[23][2];
    double powers[24]; /* from 1e-8 on */
};

constexpr t_PAIR_TENS make_pair_tens()
{
    t_PAIR_TENS made = {{}, {1e-8, 1e-7, 1e-6, 1e-5, 1e-4, 1e-3, 1e-2, 1e-1, 1e0,  1e1,  1e2,  1e3,
                             1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15}};
    double ten = 1;
    for (auto &parts : made.parts) {
        parts[0] = __builtin_bit_cast(double, __builtin_bit_cast(uint64_t, ten) & ~uint64_t{0x7FFFFFF});
        parts[1] = ten - parts[0];
        ten *= 10;
    }
    return made;
}

static constexpr t_PAIR_TENS pair_tens = make_pair_tens();

static inline __m128d all_of(double x)
{
    return _mm_set1_pd(x);
}

static inline __m128d masked(__m128d x, uint64_t mask)
{
    return _mm_and_pd(x, _mm_castsi128_pd(_mm_set1_epi64x(static_cast<int64_t>(mask))));
}

/* The upper halves of the doubles, and the points: each double is 0.ddd... * 10^point. */
struct t_POINTS {
    uint32_t high[2];
    int point[2];
};

/* False when a double is out of range, also where it is not a number. Its exponent leaves two powers of ten; of those
   below 1 the double is compared with the nearest double. That may be less than the power, and be the double itself,
   whose point is then one too large: its 15 decimals are those of the power for both points. */
static inline bool find_points(const double *from, t_POINTS *points)
{
    for (int i = 0; i < 2; i++) {
        memcpy(&points->high[i], reinterpret_cast<const char *>(from + i) + 4, 4);
        const int exponent = static_cast<int>(points->high[i] >> 20 & 0x7FF) - 1023;
        if (exponent < -26 || exponent > 48) return false;
        const int below = ten_below(exponent);
        points->point[i] = below + 1 + (__builtin_fabs(from[i]) >= pair_tens.powers[below + 9] ? 1 : 0);
    }
    return true;
}

/* Rounds x * 10^(15 - point) to whole numbers. False when one of them is not sure, or is 10^15: it has 16 decimals.

   The product is high, and what its rounding left out is low: the parts of the factors have 26 and 27 bits, so their
   products are exact, and what is lost when those are added up is less than 2^-70 of it. Sure means, as there,
   farther from a tie than 2^-53 and 2^-57 of the product; the margin is 2^-53 and 2^-56 of it, more by far than what
   rounding changes here. high + 2^52 has no fraction. Test: SurePair.* */
static inline bool round_products(const double *from, const t_POINTS &points, __m128d *whole)
{
    const __m128d first = _mm_loadu_pd(pair_tens.parts[15 - points.point[0]]);
    const __m128d second = _mm_loadu_pd(pair_tens.parts[15 - points.point[1]]);
    const __m128d ten_high = _mm_unpacklo_pd(first, second);
    const __m128d ten_low = _mm_unpackhi_pd(first, second);
    const __m128d signed_x = _mm_loadu_pd(from);
    const __m128d x = masked(signed_x, 0x7FFFFFFFFFFFFFFF);
    const __m128d x_high = masked(signed_x, 0x7FFFFFFFF8000000);
    const __m128d x_low = x - x_high;

    const __m128d high = x * (ten_high + ten_low);
    const __m128d low = ((x_high * ten_high - high) + x_high * ten_low + x_low * ten_high) + x_low * ten_low;
    *whole = (high + all_of(0x1p52)) - all_of(0x1p52);
    const __m128d fraction = masked((high - *whole) + low, 0x7FFFFFFFFFFFFFFF);
    const __m128d sure = _mm_cmplt_pd(fraction, all_of(0.5) - high * all_of(0x1.2p-53));
    const __m128d fifteen = _mm_cmplt_pd(*whole, all_of(1e15));
    return _mm_movemask_pd(_mm_and_pd(sure, fifteen)) == 3;
}

/* Sixteen decimals as eight and eight: those of the first double, then those of the second, in four words. 1e-8 as a
   double is a little more than that, so the quotient is never too small. It is above by less than 2^-52 of it: by
   less than 2.3e-9 for fifteen decimals, and 2.3e-8 for sixteen, of which the last is 0; so it does not reach the
   next whole number, from which it is 1e-8 and 1e-7 away. The rest is exact: the decimals, of an even number, are
   below 2^54. */
static inline __m128i split_sixteens(__m128d sixteens)
{
    const __m128i quotients = _mm_cvttpd_epi32(sixteens * all_of(1e-8));
    const __m128i rests = _mm_cvttpd_epi32(sixteens - _mm_cvtepi32_pd(quotients) * all_of(1e8));
    return _mm_unpacklo_epi32(quotients, rests);
}

/* Exponent, sign, count of digits. */
static inline void store_pair_header(const t_POINTS &points, int i, int count, char *record)
{
    const uint32_t exponent = static_cast<uint16_t>((points.point[i] + 1) >> 1);
    const uint32_t sign = (~points.high[i] >> 31) << 16;
    const uint32_t header = exponent | sign | static_cast<uint32_t>(count) << 24;
    memcpy(record, &header, sizeof header);
}

/* Whether both are sure; if so, they are stored: the second last, as it may overlap the first. Only where the program
   rounds to the nearest. An odd point leaves the tens of the first digit empty. */
static inline bool store_sure_pair(const double *from, char *first, char *second)
{
    t_POINTS points;
    __m128d whole;
    if (!find_points(from, &points) || !round_products(from, points, &whole)) return false;
    static constexpr double factors[] = {10, 1};
    const __m128d factor = _mm_set_pd(factors[points.point[1] & 1], factors[points.point[0] & 1]);
    const __m128i digits = digits_of_eights(split_sixteens(whole * factor));
    const uint32_t nonzero = nonzero_bytes(digits);

    store_pair_header(points, 0, 32 - __builtin_clz(nonzero & 0xFF), first);
    store_eight(first + 4, digits);
    store_pair_header(points, 1, 24 - __builtin_clz(nonzero), second);
    store_eight(second + 4, _mm_unpackhi_epi64(digits, digits));
    return true;
}

} // namespace wire

#else

namespace wire {

static inline bool store_sure_pair(const double *, char *, char *)
{
    return false;
}

} // namespace wire

#endif
#endif
