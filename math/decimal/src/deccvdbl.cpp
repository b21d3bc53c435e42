/* SPDX-License-Identifier: MIT
 *
 * Floating point to records, by way of the decimals that ecvt gives in 32-bit programs. */
#include <bit>
#include <math.h>
#include <stdlib.h>

#include "dec_double.h"
#include "dec_int.h"
#include "wire/sure_real.h"

static constexpr int double_decimals = 15;
static constexpr int float_decimals = 6;

/* The decimals of a finite value, sure or not. */
static wire::t_FIFTEEN decide_decimals(double value, int count)
{
#if UINTPTR_MAX > UINT32_MAX
    const t_DECIMALS found = dec_find_decimals(fabs(value), count);
    wire::t_FIFTEEN decimals = {found.digits, found.point};
#else
    wire::t_FIFTEEN decimals = {};
    int sign = 0;
    const char *text = ecvt(value, count, &decimals.point, &sign);
    for (int i = 0; i < count; i++) /* ecvt may give one more, when rounding carried */
        decimals.decimals = 10 * decimals.decimals + static_cast<uint64_t>(text[i] - '0');
#endif
    for (int i = count; i < double_decimals; i++)
        decimals.decimals *= 10;
    return decimals;
}

int deccvreal(t_DECIMAL *result, int ndecimals, double value)
{
    if (!isfinite(value)) { /* has no decimals; ecvt would give letters */
        dec_give_null(result);
        return DEC_OVERFLOW;
    }
    const wire::t_FIFTEEN decimals = decide_decimals(value, ndecimals);
    wire::store_real(wire::real_of(decimals, signbit(value)), result);
    return dec_set_exponent(result->dec_exp, &result->dec_exp);
}

/* KEPT: ecvt scales the value in 64 significant bits, rounds to double and prints that, so the last decimal is not
   always that of the value itself: 2^59, which is 576460752303423488, becomes 576460752303424000; 576460752303423000
   would be nearest. Test: Deccvdbl.gives_the_decimals_of_ecvt_in_32_bit_programs.
   KEPT: zero is a record of exponent 1, since ecvt puts its point after one digit, and minus zero keeps its sign
   byte 0: to dectoasc such a zero has an integer place, "00". Test: Deccvdbl.zero_has_exponent_1_and_keeps_its_sign.
 */
int deccvdbl(double value, t_DECIMAL *result)
{
    const uint64_t bits = wire::bits_of_parameter(value);
    if (wire::store_sure_real(bits, double_decimals, result)) return DEC_OK;
    return deccvreal(result, double_decimals, std::bit_cast<double>(bits));
}

int deccvflt(float value, t_DECIMAL *result)
{
    const double wide = static_cast<double>(value);
    if (wire::store_sure_real(std::bit_cast<uint64_t>(wide), float_decimals, result)) return DEC_OK;
    return deccvreal(result, float_decimals, wide);
}
