/* SPDX-License-Identifier: MIT
 *
 * Division: long division in base 100. Every quotient digit is first estimated, never too small, and then corrected
 * downwards. */
#include "dec_int.h"

/* In all of these r is the remainder, ACCSIZE digits, and the divisor b has its first digit under digit k. */

/* How many digits of b are under the remainder. */
static int digits_inside(const t_DECIMAL *b, int k)
{
    return dec_count(b) < ACCSIZE - k ? dec_count(b) : ACCSIZE - k;
}

/* From the leading digits, where the added 1 covers all that follow. Not too small for a b in normal form; a b
   that begins with zeros gives a quotient without meaning, but no more than that.
   KEPT: only one digit in front of k is looked at. A remainder that was cut off can come to be b or a little more,
   and where b begins with 99 that is a 1 two places in front: 98.99999999999999 / 99.99999999999999 gives 0.989999,
   where it should be 0.99. Test: Decdiv.digit_two_places_in_front_is_out_of_sight. */
static int estimate(const int *r, const t_DECIMAL *b, int k)
{
    const int divisor = dec_digit(b, 0) * DEC_BASE + dec_digit(b, 1);
    if (divisor == 0) return DEC_BASE - 1;
    const int next = k + 1 < ACCSIZE ? r[k + 1] : 0;
    const bool long_remainder = k > 0 && r[k - 1] != 0;
    const int dividend = long_remainder ? (r[k - 1] * DEC_BASE + r[k] + 1) * DEC_BASE : r[k] * DEC_BASE + next + 1;
    return dividend / divisor < DEC_BASE ? dividend / divisor : DEC_BASE - 1;
}

/* Subtracts q * b; returns what is borrowed from the digit in front of k, 0 or below.
   KEPT: of the products past the ninth place only the first counts, and of that only whole units, so the last digits
   of a quotient may be too large: 1 / 1.458986 gives 0.6854075364671082, where 0.6854075364671079 would be nearest.
   Test: Decdiv.remainder_is_kept_to_nine_places. */
static int subtract(int *r, const t_DECIMAL *b, int k, int q)
{
    const int inside = digits_inside(b, k);
    int borrow = -(dec_digit(b, inside) * q / DEC_BASE);
    for (int j = inside - 1; j >= 0; j--) {
        const int left = r[k + j] - b->dec_dgts[j] * q + borrow;
        borrow = -((DEC_BASE - 1 - left) / DEC_BASE); /* rounds down: left is below DEC_BASE */
        r[k + j] = left - borrow * DEC_BASE;
    }
    return borrow;
}

/* Adds b, returns the carry into the digit in front of k.
   KEPT: digits past the ninth place are not given back.
   Test: Decdiv.correction_gives_back_only_what_is_inside. */
static int add_back(int *r, const t_DECIMAL *b, int k)
{
    int carry = 0;
    for (int j = digits_inside(b, k) - 1; j >= 0; j--) {
        const int sum = r[k + j] + b->dec_dgts[j] + carry;
        carry = sum >= DEC_BASE ? 1 : 0;
        r[k + j] = sum - carry * DEC_BASE;
    }
    return carry;
}

/* The quotient digit at k, taken off the remainder. */
static int divide_at(int *r, const t_DECIMAL *b, int k)
{
    int q = estimate(r, b, k);
    if (q == 0) return 0;
    int front = (k > 0 ? r[k - 1] : 0) + subtract(r, b, k, q);
    while (front < 0 && q > 0) {
        front += add_back(r, b, k);
        q--;
    }
    return q;
}

int decdiv(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result)
{
    if (dec_isnull(a) || dec_isnull(b)) return dec_give_null(result);
    if (dec_iszero(b)) {
        dec_give_zero(result);
        return DEC_DIVISION_BY_ZERO;
    }
    int r[ACCSIZE];
    for (int i = 0; i < ACCSIZE; i++)
        r[i] = dec_digit(a, i);
    t_DECACC acc = {static_cast<int16_t>(a->dec_exp - b->dec_exp + 1), dec_common_sign(a, b), ACCSIZE, {}};
    /* KEPT: a first digit of 0 leaves eight digits and no guard digit: 2 / 3 ends in 6, where one would expect 7.
       Test: Decdiv.first_digit_of_zero_costs_the_guard_digit. */
    for (int k = 0; k < ACCSIZE; k++)
        acc.dec_dgts[k] = static_cast<uint8_t>(divide_at(r, b, k));
    return dec_give(&acc, 0, result);
}
