/* SPDX-License-Identifier: MIT
 *
 * Records to floating point. Everything is computed in the processor's 80-bit format, the same in 32-bit and 64-bit
 * programs, and rounded once, to double. */
#include "dec_int.h"

static constexpr int double_digits = 15; /* all that a record has */
static constexpr int float_digits = 6;
static constexpr long double base = DEC_BASE;

int dectoreal(const t_DECIMAL *value, double *result, int ndigit)
{
    long double x = 0;
    for (int i = (ndigit < dec_count(value) ? ndigit : dec_count(value)) - 1; i >= 0; i--)
        x = (x + value->dec_dgts[i]) / base;
    if (dec_isnegative(value)) x = -x;
    /* One step at a time: the result depends on the rounding of each. */
    for (int i = 0; i < value->dec_exp; i++)
        x *= base;
    for (int i = 0; i > value->dec_exp; i--)
        x /= base;
    *result = static_cast<double>(x);
    return DEC_OK;
}

int dectodbl(const t_DECIMAL *value, double *result)
{
    return dectoreal(value, result, double_digits);
}

int dectoflt(const t_DECIMAL *value, float *result)
{
    double wide = 0;
    const int code = dectoreal(value, &wide, float_digits);
    *result = static_cast<float>(wide);
    return code;
}
