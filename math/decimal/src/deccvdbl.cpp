/* SPDX-License-Identifier: MIT
 *
 * Floating point to records, by way of the decimals that the C library's ecvt gives. */
#include <math.h>
#include <stdlib.h>

#include "dec_int.h"

static constexpr int double_decimals = 15;
static constexpr int float_decimals = 6;

int deccvreal(t_DECIMAL *result, int ndecimals, double value)
{
    if (!isfinite(value)) { /* has no decimals; ecvt would give letters */
        dec_give_null(result);
        return DEC_OVERFLOW;
    }
    int decpt = 0;
    int sign = 0;
    const char *decimals = ecvt(value, ndecimals, &decpt, &sign);
    *result = {};
    result->dec_pos = sign == 0 ? DEC_POSITIVE : DEC_NEGATIVE;

    /* An odd power of ten leaves the tens of the first digit empty. The decimals asked for are all given; ecvt may
       give one more, when rounding carried, which is not read. */
    const int shift = decpt % 2 != 0 ? 1 : 0;
    // GCOVR_EXCL_START: at most 15 decimals are asked for and given, so the last two bounds never end the loop
    for (int i = 0; i < ndecimals && i + shift < 2 * DEC_DIGITS && decimals[i] != '\0'; i++)
        // GCOVR_EXCL_STOP
        dec_put_decimal(result->dec_dgts, i + shift, decimals[i] - '0');
    result->dec_ndgts = static_cast<int8_t>(dec_trim(result->dec_dgts, DEC_DIGITS));
    return dec_set_exponent((decpt > 0 ? decpt + 1 : decpt) / 2, &result->dec_exp);
}

/* KEPT: zero is a record of exponent 1, since ecvt puts its point after one digit, and minus zero keeps its sign
   byte 0: to dectoasc such a zero has an integer place, "00". Test: Deccvdbl.zero_has_exponent_1_and_keeps_its_sign.
 */
int deccvdbl(double value, t_DECIMAL *result)
{
    return deccvreal(result, double_decimals, value);
}

int deccvflt(float value, t_DECIMAL *result)
{
    return deccvreal(result, float_decimals, static_cast<double>(value));
}
