/* SPDX-License-Identifier: MIT
 *
 * The decimals of a REAL in normal form, for the fast ways out of one. Zeros at its end make no difference. */
#ifndef KA_REAL_DECIMALS_H
#define KA_REAL_DECIMALS_H

#include "ka/decimal.h"
#include "wire/general_text.h"
#include "wire/real_digits.h"

/* Whether x is in normal form and not zero; if so, digits are its digits. The fields of the header are read one by
   one: they may just have been stored so. */
static inline bool load_normal(const t_DECIMAL *x, wire::t_REAL_DIGITS *digits)
{
    if (x->dec_pos > DEC_POSITIVE || x->dec_ndgts < 1 || x->dec_ndgts > DEC_DIGITS || x->dec_exp < DEC_EXP_MIN ||
        x->dec_exp > DEC_EXP_MAX)
        return false;
    *digits = wire::load_digits(x->dec_dgts, x->dec_ndgts);
    return (digits->first & 0xFF) != 0 && !wire::above_99(digits->first) && !wire::above_99(digits->last);
}

/* 0.ddd... * 100^exponent, as sixteen decimals: eight and eight. */
struct t_SIXTEEN {
    uint32_t first, last;
    int exponent;
};

constexpr uint32_t eight_decimals = 100000000;

static inline t_SIXTEEN join(wire::t_REAL_DIGITS digits, int exponent)
{
    return {wire::join_digits(digits.first), wire::join_digits(digits.last), exponent};
}

/* 1 when the first digit has only one decimal, else 0. */
static inline int leading_zeros(t_SIXTEEN x)
{
    return x.first < eight_decimals / 10 ? 1 : 0;
}

/* The first places of the sixteen, 0 to 15, rounded half away from zero: what was dropped is 0 then. */
static inline t_SIXTEEN round_to(t_SIXTEEN x, int places)
{
    static constexpr uint32_t unit_of[] = {100000000, 10000000, 1000000, 100000, 10000, 1000, 100, 10};
    const uint32_t unit = unit_of[places % 8];
    uint32_t *half = places < 8 ? &x.first : &x.last;
    *half = (*half + unit / 2) / unit * unit;
    if (places < 8) x.last = 0;
    if (x.last == eight_decimals) x.last = 0, x.first++;
    if (x.first == eight_decimals) x.first = eight_decimals / 100, x.exponent++;
    return x;
}

/* What dececvt gives for x in normal form, without the zeros at the end; in room, of 17 characters. ndigit is 1 or
   more. The last digit that counts is not 0, so only its units can be. Test: MGcvt.is_what_the_long_way_gives. */
static inline bool show_normal(const t_DECIMAL *x, int ndigit, char *room, wire::t_SHOWN *shown)
{
    wire::t_REAL_DIGITS digits;
    if (!load_normal(x, &digits)) return false;
    int exponent = x->dec_exp;
    int zeros = (digits.first & 0xFF) < 10 ? 1 : 0;
    int count = wire::count_digits(digits);
    if (2 * count - zeros > ndigit) {
        const t_SIXTEEN rounded = round_to(join(digits, exponent), ndigit + zeros);
        digits = {wire::split_digits(rounded.first), wire::split_digits(rounded.last)};
        exponent = rounded.exponent;
        zeros = leading_zeros(rounded);
        count = wire::count_digits(digits);
    }
    wire::put_digits(digits, room);
    const int length = 2 * count - zeros - (room[2 * count - 1] == '0' ? 1 : 0);
    *shown = {room + zeros, length, 2 * exponent - zeros, x->dec_pos == DEC_NEGATIVE};
    return true;
}

#endif
