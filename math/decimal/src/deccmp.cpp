/* SPDX-License-Identifier: MIT
 *
 * Three-way comparison, by sign, then exponent, then digits. */
#include "dec_int.h"

int deccmp(const t_DECIMAL *a, const t_DECIMAL *b)
{
    if (dec_isnull(a) || dec_isnull(b)) return DEC_NOT_COMPARABLE;
    if (dec_iszero(a) && dec_iszero(b)) return 0;

    /* Before the tests for zero: a positive zero is above every negative value and below every positive one. */
    const int sign = dec_isnegative(a) ? -1 : 1;
    if (a->dec_pos != b->dec_pos) return sign;

    if (a->dec_exp != b->dec_exp) {
        /* KEPT: a zero with sign byte 0 is below a negative value of another exponent, where one would expect above:
           compared with -300 it gives -1.
           Test: Deccmp.zero_with_sign_byte_0_counts_as_smaller_beside_a_negative_of_another_exponent. */
        if (dec_iszero(a)) return -1;
        if (dec_iszero(b)) return 1;
        return a->dec_exp > b->dec_exp ? sign : -sign;
    }
    const int difference = dec_compare_digits(a, b);
    return difference > 0 ? sign : difference < 0 ? -sign : 0;
}
