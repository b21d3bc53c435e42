/* SPDX-License-Identifier: MIT
 *
 * Change of sign, in place. */
#include "dec_int.h"

int decchs(t_DECIMAL *x)
{
    if (dec_isnull(x)) return dec_give_null(x);
    if (!dec_iszero(x)) x->dec_pos ^= 1;
    return DEC_OK;
}
