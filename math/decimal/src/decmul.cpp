/* SPDX-License-Identifier: MIT
 *
 * Multiplication: the schoolbook product as far as the accumulator reaches. */
#include "dec_int.h"

/* Adds the columns of the product that have a place among the digits, and carries through them; returns the carry out
   of the first one. A column has at most 8 products, so the sums are exact.
   KEPT: columns past the ninth place are left out with their carries, so the last digits of a long product may be too
   small: the square of 1.9999999999999 ends in 54 where the nearest record, 3.9999999999996, would end in 60.
   Test: Decmul.columns_past_the_ninth_place_are_left_out. */
static int multiply(const t_DECIMAL *a, const t_DECIMAL *b, uint8_t *digits)
{
    int columns[ACCSIZE] = {};
    for (int i = 0; i < dec_count(a); i++)
        for (int j = 0; j < dec_count(b) && i + j < ACCSIZE; j++)
            columns[i + j] += a->dec_dgts[i] * b->dec_dgts[j];
    int carry = 0;
    for (int i = ACCSIZE - 1; i >= 0; i--) {
        const int sum = columns[i] + carry;
        digits[i] = static_cast<uint8_t>(sum % DEC_BASE);
        carry = sum / DEC_BASE;
    }
    return carry;
}

int decmul(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result)
{
    if (dec_isnull(a) || dec_isnull(b)) return dec_give_null(result);
    if (dec_iszero(a) || dec_iszero(b)) return dec_give_zero(result);

    /* The carry is the first digit of the product: without it the first one is a place lower. */
    t_DECACC acc = {static_cast<int16_t>(a->dec_exp + b->dec_exp - 1), dec_common_sign(a, b), ACCSIZE, {}};
    const int carry = multiply(a, b, acc.dec_dgts);
    return dec_give(&acc, carry, result);
}
