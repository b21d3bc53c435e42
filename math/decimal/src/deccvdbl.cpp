/* SPDX-License-Identifier: MIT
 *
 * Floating point to records, by way of the decimals that ecvt gives in 32-bit programs. */
#include <math.h>
#include <stdlib.h>

#include "dec_double.h"
#include "dec_int.h"

static constexpr int double_decimals = 15;
static constexpr int float_decimals = 6;

/* Stores count decimals of a finite value as pairs, and returns the place of its point. An odd power of ten leaves
   the tens of the first digit empty. */
static int store_decimals(double value, int count, t_DECIMAL *result)
{
#if UINTPTR_MAX > UINT32_MAX
    const t_DECIMALS decimals = dec_find_decimals(fabs(value), count);
    uint64_t digits = decimals.digits;
    for (int i = count + (decimals.point % 2 != 0 ? 1 : 0); i < 2 * DEC_DIGITS; i++)
        digits *= 10;
    for (int i = DEC_DIGITS - 1; i >= 0; i--, digits /= DEC_BASE)
        result->dec_dgts[i] = static_cast<uint8_t>(digits % DEC_BASE);
    return decimals.point;
#else
    int point = 0;
    int sign = 0;
    const char *decimals = ecvt(value, count, &point, &sign);
    for (int i = 0; i < count; i++) /* ecvt may give one more, when rounding carried */
        dec_put_decimal(result->dec_dgts, i + (point % 2 != 0 ? 1 : 0), decimals[i] - '0');
    return point;
#endif
}

int deccvreal(t_DECIMAL *result, int ndecimals, double value)
{
    if (!isfinite(value)) { /* has no decimals; ecvt would give letters */
        dec_give_null(result);
        return DEC_OVERFLOW;
    }
    *result = {};
    result->dec_pos = signbit(value) ? DEC_NEGATIVE : DEC_POSITIVE;
    const int point = store_decimals(value, ndecimals, result);
    result->dec_ndgts = static_cast<int8_t>(dec_trim(result->dec_dgts, DEC_DIGITS));
    return dec_set_exponent((point > 0 ? point + 1 : point) / 2, &result->dec_exp);
}

/* KEPT: ecvt scales the value in 64 significant bits, rounds to double and prints that, so the last decimal is not
   always that of the value itself: 2^59, which is 576460752303423488, becomes 576460752303424000; 576460752303423000
   would be nearest. Test: Deccvdbl.gives_the_decimals_of_ecvt_in_32_bit_programs.
   KEPT: zero is a record of exponent 1, since ecvt puts its point after one digit, and minus zero keeps its sign
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
