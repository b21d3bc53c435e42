/* SPDX-License-Identifier: MIT
 *
 * The double nearest to a REAL of 14 decimals, where one operation of the processor gives it. */
#ifndef KA_NEAREST_DOUBLE_H
#define KA_NEAREST_DOUBLE_H

#include <float.h>

#include "normal_digits.h"

/* Those that a double holds exactly: 5^22 has 52 bits. */
static constexpr double exact_tens[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                        1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
static constexpr int exact_tens_most = 22;

static_assert(FLT_EVAL_METHOD == 0, "doubles must be computed as doubles (on 32-bit x86: -msse2 -mfpmath=sse)");

/* Whether that is so for x; if so, the double is stored. x rounded to 14 decimals is the whole number of these times
   a power of ten: both exact as doubles (2^53 is above 10^14), so their product or quotient is rounded only once, to
   the nearest, or as the program has set it, and strtod, given the same decimals, gives the same. The sign comes
   first, for the program may round up or down. Test: MToDbl.is_what_the_long_way_gives. */
static inline bool find_nearest_double(const t_DECIMAL *x, double *d)
{
    uint32_t first, last;
    if (!load_normal(x, &first, &last)) {
        if (x->dec_ndgts != 0 || x->dec_pos > DEC_POSITIVE) return false;
        *d = 0;
        return true;
    }
    const bool fifteen = first < 10000000; /* a zero is in front of them, and one of them is too many */
    const int exponent = 2 * x->dec_exp - (fifteen ? 15 : 14);
    if (exponent < -exact_tens_most || exponent > exact_tens_most) return false;

    const uint32_t tenths = (last + (fifteen ? 5 : 50)) / 10;
    const uint32_t rounded = fifteen ? tenths : tenths / 10;
    const double magnitude = static_cast<int32_t>(first) * (fifteen ? 1e7 : 1e6) + static_cast<int32_t>(rounded);
    const double decimals = x->dec_pos == DEC_POSITIVE ? magnitude : -magnitude;
    *d = exponent < 0 ? decimals / exact_tens[-exponent] : decimals * exact_tens[exponent];
    return true;
}

#endif
