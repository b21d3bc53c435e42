/* SPDX-License-Identifier: MIT
 *
 * Records to floating point. Everything is computed in 64 significant bits, the same on every machine, and rounded
 * once, to double. */
#include "dec_int.h"
#include "extended.h"

static constexpr int double_digits = 15; /* all that a record has */
static constexpr int float_digits = 6;

/* KEPT: every step rounds to 64 bits, so the result is not always the double nearest to the value: 5.21e-8 becomes
   5.2099999999999997e-8; 5.2100000000000003e-8 would be nearest. Test: Dectodbl.is_not_always_the_nearest_double. */
int dectoreal(const t_DECIMAL *value, double *result, int ndigit)
{
    constexpr t_EXTENDED base = ext_from(DEC_BASE);
    t_EXTENDED x = ext_from(0);
    for (int i = (ndigit < dec_count(value) ? ndigit : dec_count(value)) - 1; i >= 0; i--)
        x = ext_div(ext_add(x, ext_from(value->dec_dgts[i])), base);
    /* One step at a time: the result depends on the rounding of each. */
    for (int i = 0; i < value->dec_exp; i++)
        x = ext_mul(x, base);
    for (int i = 0; i > value->dec_exp; i--)
        x = ext_div(x, base);
    *result = dec_isnegative(value) ? -ext_to_double(x) : ext_to_double(x);
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
