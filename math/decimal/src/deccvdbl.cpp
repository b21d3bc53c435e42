/* SPDX-License-Identifier: MIT
 *
 * Floating point to records, by way of the decimals that ecvt gives in 32-bit programs. */
#include <math.h>
#include <stdlib.h>

#include "dec_double.h"
#include "dec_int.h"

static constexpr int double_decimals = 15;
static constexpr int float_decimals = 6;

static t_DECIMALS find_decimals(double value, int count)
{
#if UINTPTR_MAX > UINT32_MAX
    return dec_find_decimals(fabs(value), count);
#else
    t_DECIMALS decimals = {};
    int sign = 0;
    const char *text = ecvt(value, count, &decimals.point, &sign);
    for (int i = 0; i < count; i++) /* ecvt may give one more, when rounding carried */
        decimals.digits = 10 * decimals.digits + static_cast<uint64_t>(text[i] - '0');
    return decimals;
#endif
}

/* Pairs the decimals, of which there are count. An odd power of ten leaves the tens of the first digit empty. */
static void store_decimals(t_DECIMALS decimals, int count, t_DECIMAL *result)
{
    uint64_t digits = decimals.digits;
    for (int i = count + (decimals.point % 2 != 0 ? 1 : 0); i < 2 * DEC_DIGITS; i++)
        digits *= 10;
    constexpr uint64_t half = 100000000; /* of the 16 decimals: what is left is divided in 32 bits, for speed */
    uint32_t first = static_cast<uint32_t>(digits / half);
    uint32_t second = static_cast<uint32_t>(digits % half);
    for (int i = DEC_DIGITS / 2 - 1; i >= 0; i--) {
        result->dec_dgts[i] = static_cast<uint8_t>(first % DEC_BASE);
        result->dec_dgts[i + DEC_DIGITS / 2] = static_cast<uint8_t>(second % DEC_BASE);
        first /= DEC_BASE;
        second /= DEC_BASE;
    }
    result->dec_ndgts = static_cast<int8_t>(dec_trim(result->dec_dgts, DEC_DIGITS));
}

int deccvreal(t_DECIMAL *result, int ndecimals, double value)
{
    if (!isfinite(value)) { /* has no decimals; ecvt would give letters */
        dec_give_null(result);
        return DEC_OVERFLOW;
    }
    const t_DECIMALS decimals = find_decimals(value, ndecimals);
    result->dec_pos = signbit(value) ? DEC_NEGATIVE : DEC_POSITIVE;
    store_decimals(decimals, ndecimals, result);
    return dec_set_exponent((decimals.point > 0 ? decimals.point + 1 : decimals.point) / 2, &result->dec_exp);
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
