/* SPDX-License-Identifier: MIT
 *
 * Truncation to decimal places, in the record itself. */
#include "dec_int.h"

/* KEPT: an exponent below 0 counts as 0, so a value below 0.01 keeps two more places for each base-100 zero after its
   point: 0.00012 truncated to 2 places is 0.0001, where decround gives 0.
   Test: Dectrunc.negative_exponent_counts_as_zero. */
int dectrunc(t_DECIMAL *x, int places)
{
    if (places < 0) return DEC_NEGATIVE_PLACES;
    if (dec_isnull(x)) return dec_give_null(x);
    const int k = (x->dec_exp > 0 ? x->dec_exp : 0) + places / 2;
    if (dec_count(x) <= k) return DEC_OK;

    const int tens = places % 2 == 0 ? 0 : x->dec_dgts[k] / 10 * 10;
    x->dec_dgts[k] = static_cast<uint8_t>(tens);
    x->dec_ndgts = static_cast<int8_t>(dec_trim(x->dec_dgts, k + 1));
    return dec_iszero(x) ? dec_give_zero(x) : DEC_OK;
}
