/* SPDX-License-Identifier: MIT
 *
 * Rounding to decimal places, in the record itself. */
#include "dec_int.h"

/* A carry out of the first digit becomes a digit of its own. Never of 8 digits, where the last one would fall off,
   nor at the top exponent: what is rounded has at most 7 digits left, and its exponent is at most 7.
   (All digits are 0 by now; they are moved for what the digit bytes hold, not for the value.) */
static int put_one_in_front(t_DECIMAL *x)
{
    memmove(x->dec_dgts + 1, x->dec_dgts, DEC_DIGITS - 1);
    x->dec_dgts[0] = 1;
    if (x->dec_ndgts < DEC_DIGITS) x->dec_ndgts++; // GCOVR_EXCL_LINE: at most 7 digits, see above
    x->dec_exp++;
    if (x->dec_exp <= DEC_EXP_MAX) return DEC_OK; // GCOVR_EXCL_LINE: at most 8, see above
    x->dec_exp = DEC_EXP_MAX;                     // GCOVR_EXCL_LINE
    return DEC_OVERFLOW;                          // GCOVR_EXCL_LINE
}

/* Adds 1 to the last of count digits.
   KEPT: of the digits that the carry turns into 0 only the last is dropped, so 199.99995 to 4 places is 200 in three
   digits (2 0 0), not in normal form. Test: Decround.carry_leaves_zero_digits. */
static int round_up(t_DECIMAL *x, int count)
{
    const bool carried_out = dec_carry_up(x->dec_dgts, count);
    if (count > 0 && x->dec_dgts[count - 1] == 0) x->dec_ndgts--;
    return carried_out ? put_one_in_front(x) : DEC_OK;
}

/* Leaves the tens of digit k, rounded, and drops what follows; true when they carry. */
static bool round_tens(t_DECIMAL *x, int k)
{
    const int rounded = x->dec_dgts[k] + DEC_HALF / 10;
    const int tens = rounded % DEC_BASE / 10 * 10;
    x->dec_ndgts = static_cast<int8_t>(k);
    if (tens != 0) x->dec_dgts[x->dec_ndgts++] = static_cast<uint8_t>(tens);
    return rounded >= DEC_BASE;
}

/* KEPT: zero digits at the end of what is kept stay: 1.0020 to 2 places keeps the digits 1 0.
   Test: Decround.keeps_zero_digits_at_the_end. */
int decround(t_DECIMAL *x, int places)
{
    if (places < 0) return DEC_NEGATIVE_PLACES;
    if (dec_isnull(x)) return dec_give_null(x);
    const int k = x->dec_exp + places / 2;
    if (dec_count(x) <= k) return DEC_OK;
    if (k < 0) return dec_give_zero(x);

    bool up = x->dec_dgts[k] >= DEC_HALF;
    if (places % 2 == 0)
        x->dec_ndgts = static_cast<int8_t>(k);
    else
        up = round_tens(x, k);
    const int code = up ? round_up(x, k) : DEC_OK;
    return dec_iszero(x) ? dec_give_zero(x) : code;
}
