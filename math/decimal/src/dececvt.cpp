/* SPDX-License-Identifier: MIT
 *
 * The significant decimals of a value, rounded to a count of them or of places after the point. The string is in
 * one static buffer, the only state that the library has. */
#include "dec_int.h"
#include "decimal_string.h"

using decimal::string_buffer;
using decimal::STRING_LENGTH;

/* Written by every decefcvt; its callers may shorten the string in place. */
char decimal::string_buffer[STRING_LENGTH + 1];

/* 1 when the first digit has only one decimal, else 0. */
static int leading_zeros(const t_DECIMAL *x)
{
    return !dec_iszero(x) && x->dec_dgts[0] < 10 ? 1 : 0;
}

static int point_of(const t_DECIMAL *x)
{
    return 2 * x->dec_exp - leading_zeros(x);
}

/* Five units of the first decimal not shown when n of them are, with the sign of value: added, it rounds half away
   from zero. n is below the decimals that value holds. */
static t_DECIMAL half_unit(const t_DECIMAL *value, int n)
{
    const int place = leading_zeros(value) + n;
    t_DECIMAL unit = {};
    unit.dec_exp = static_cast<int16_t>(value->dec_exp - place / 2);
    unit.dec_pos = value->dec_pos;
    unit.dec_ndgts = 1;
    unit.dec_dgts[0] = place % 2 == 0 ? DEC_HALF : DEC_HALF / 10;
    return unit;
}

/* The decimal at a place of the digit string, where every digit has two. */
static char decimal_at(const t_DECIMAL *x, int place)
{
    const int digit = dec_digit(x, place / 2);
    return static_cast<char>('0' + (place % 2 == 0 ? digit / 10 : digit % 10));
}

static void write_decimals(const t_DECIMAL *x, int64_t n)
{
    // GCOVR_EXCL_START: n is not below 0, as rounding adds a unit that lies just past the n decimals shown
    const int count = n < 0 ? 0 : n > STRING_LENGTH ? STRING_LENGTH : static_cast<int>(n);
    // GCOVR_EXCL_STOP
    const int first = leading_zeros(x);
    for (int i = 0; i < count; i++)
        string_buffer[i] = decimal_at(x, first + i);
    string_buffer[count] = '\0';
}

char *decefcvt(const t_DECIMAL *value, int ndigit, int *decpt, int *sign, int mode)
{
    string_buffer[0] = '\0';
    if (dec_isnull(value)) return string_buffer;
    *sign = value->dec_pos ^ 1;
    *decpt = point_of(value);
    int64_t n = mode == 0 ? ndigit : int64_t{ndigit} + *decpt;
    if (n < 0) return string_buffer;

    t_DECIMAL rounded = *value;
    if (2 * dec_count(value) - leading_zeros(value) > n) {
        const t_DECIMAL unit = half_unit(value, static_cast<int>(n));
        if (decadd(value, &unit, &rounded) != DEC_OK) return string_buffer;
    }
    *decpt = point_of(&rounded);
    if (mode != 0) n = int64_t{ndigit} + *decpt; /* a carry into a new decimal adds one */
    write_decimals(&rounded, n);
    return string_buffer;
}

char *dececvt(const t_DECIMAL *value, int ndigit, int *decpt, int *sign)
{
    return decefcvt(value, ndigit, decpt, sign, 0);
}

char *decfcvt(const t_DECIMAL *value, int ndigit, int *decpt, int *sign)
{
    return decefcvt(value, ndigit, decpt, sign, 1);
}
