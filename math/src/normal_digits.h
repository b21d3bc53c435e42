/* SPDX-License-Identifier: MIT
 *
 * The digits of a REAL in normal form, for the fast ways out of one. Zeros at its end make no difference. */
#ifndef KA_NORMAL_DIGITS_H
#define KA_NORMAL_DIGITS_H

#include "ka/decimal.h"
#include "wire/digit_groups.h"
#include "wire/real_decimals.h"
#include "wire/real_digits.h"

/* The fields of the header are read one by one: they may just have been stored so. */
static inline bool has_normal_header(const t_DECIMAL *x)
{
    return x->dec_pos <= DEC_POSITIVE && x->dec_ndgts >= 1 && x->dec_ndgts <= DEC_DIGITS &&
           x->dec_exp >= DEC_EXP_MIN && x->dec_exp <= DEC_EXP_MAX;
}

#ifdef __SSE2__
/* Whether x is in normal form and not zero; if so, its digits, those not in use 0. */
static inline bool load_normal(const t_DECIMAL *x, __m128i *digits)
{
    if (!has_normal_header(x)) return false;
    *digits = wire::load_in_use(x->dec_dgts, x->dec_ndgts);
    return wire::digits_above_99(*digits) == 0 && (_mm_cvtsi128_si32(*digits) & 0xFF) != 0;
}

/* Likewise, the digits as two numbers of eight decimals. */
static inline bool load_normal(const t_DECIMAL *x, uint32_t *first, uint32_t *last)
{
    __m128i digits;
    if (!load_normal(x, &digits)) return false;
    const __m128i eights = wire::eights_of_digits(digits);
    *first = static_cast<uint32_t>(_mm_cvtsi128_si32(eights));
    *last = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(eights, 4)));
    return true;
}
#else
static inline bool load_normal(const t_DECIMAL *x, uint32_t *first, uint32_t *last)
{
    if (!has_normal_header(x)) return false;
    const wire::t_REAL_DIGITS digits = wire::load_digits(x->dec_dgts, x->dec_ndgts);
    *first = wire::join_digits(digits.first);
    *last = wire::join_digits(digits.last);
    return (digits.first & 0xFF) != 0 && !wire::above_99(digits.first) && !wire::above_99(digits.last);
}
#endif

#endif
