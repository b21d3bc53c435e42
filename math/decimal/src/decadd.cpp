/* SPDX-License-Identifier: MIT
 *
 * Addition and subtraction: column by column in the accumulator, the larger magnitude below the smaller one. */
#include "dec_int.h"

static int compare_magnitudes(const t_DECIMAL *a, const t_DECIMAL *b)
{
    return a->dec_exp != b->dec_exp ? a->dec_exp - b->dec_exp : dec_compare_digits(a, b);
}

static t_DECACC accumulator_of(const t_DECIMAL *x)
{
    const int count = dec_count(x);
    t_DECACC acc = {x->dec_exp, x->dec_pos, static_cast<int8_t>(count), {}};
    memcpy(acc.dec_dgts, x->dec_dgts, static_cast<size_t>(count));
    return acc;
}

/* Adds x, moved shift places (0 to 8) towards the end, to the accumulator, or subtracts it when the signs differ.
   Returns the carry out of the first column: 0 or 1, and -1 only for operands out of normal form.
   KEPT: digits of x past the guard digit are cut off first, so 1 - 1.99e-16 gives 0.9999999999999999, where the
   nearest value would be 0.9999999999999998.
   Test: Decadd.digits_below_the_guard_position_are_cut_off_first. */
static int add_columns(t_DECACC *acc, const t_DECIMAL *x, int shift)
{
    const int sign = x->dec_pos == acc->dec_pos ? 1 : -1;
    const int end = dec_count(x) + shift < ACCSIZE ? dec_count(x) + shift : ACCSIZE;
    if (acc->dec_ndgts < end) acc->dec_ndgts = static_cast<int8_t>(end);
    int carry = 0;
    for (int i = end - 1; i >= 0; i--) {
        const int digit = i >= shift ? sign * x->dec_dgts[i - shift] : 0;
        const int sum = acc->dec_dgts[i] + digit + carry;
        carry = sum < 0 ? -1 : sum >= DEC_BASE ? 1 : 0;
        acc->dec_dgts[i] = static_cast<uint8_t>(sum - carry * DEC_BASE);
    }
    return carry;
}

int decadd(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result)
{
    if (dec_isnull(a) || dec_isnull(b)) return dec_give_null(result);
    if (dec_iszero(a)) return dec_give_copy(b, result);
    if (dec_iszero(b)) return dec_give_copy(a, result);

    const bool a_is_larger = compare_magnitudes(a, b) >= 0;
    const t_DECIMAL *larger = a_is_larger ? a : b;
    const t_DECIMAL *smaller = a_is_larger ? b : a;
    const int shift = larger->dec_exp - smaller->dec_exp;
    if (shift >= ACCSIZE) return dec_give_copy(larger, result); /* smaller lies wholly below the guard digit */

    t_DECACC acc = accumulator_of(larger);
    const int carry = add_columns(&acc, smaller, shift);
    return dec_give(&acc, carry, result);
}

int decsub(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result)
{
    if (dec_isnull(a) || dec_isnull(b)) return dec_give_null(result);
    if (dec_iszero(b)) return dec_give_copy(a, result);
    t_DECIMAL negated = *b;
    negated.dec_pos ^= 1;
    return decadd(a, &negated, result);
}
