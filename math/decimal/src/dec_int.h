/* SPDX-License-Identifier: MIT
 *
 * What the decimal operations share, and only they see: the accumulator, the digit helpers, the ways to give a
 * result, the internal workers. Never installed.
 *
 * Operations read records through dec_count and dec_digit, which take a digit count below 0 for 0 and above 8 for 8:
 * a broken record gives a meaningless value, and no access outside it. Digits above 99 are harmless for the same
 * reason: they stay bytes.
 *
 * Where an operation has a fast way, the plain one is not inlined beside it: 32-bit processors have so few registers
 * that the fast one would keep its values in memory. */
#ifndef KA_DEC_INT_H
#define KA_DEC_INT_H

#include <string.h>

#include "ka/decimal.h"

constexpr int DEC_HALF = 50;
constexpr int ACCSIZE = 9; /* digits of the accumulator: those of a record and the guard digit */

/* A record with room for the guard digit. Results are built in it, normalised by dec_round, and its first 12 bytes
   are then the record. */
struct t_DECACC {
    int16_t dec_exp;
    uint8_t dec_pos;
    int8_t dec_ndgts;
    uint8_t dec_dgts[ACCSIZE];
};

static_assert(ACCSIZE == DEC_DIGITS + 1);
static_assert(offsetof(t_DECACC, dec_pos) == offsetof(t_DECIMAL, dec_pos));
static_assert(offsetof(t_DECACC, dec_ndgts) == offsetof(t_DECIMAL, dec_ndgts));
static_assert(offsetof(t_DECACC, dec_dgts) == offsetof(t_DECIMAL, dec_dgts));

/* ---- Internal workers ------------------------------------------------------------------------------------------ */

extern "C" {
/* Brings an accumulator of 0 to 9 digits to normal form; a carry of 1 or more becomes its new first digit. Aborts on
   any other digit count. DEC_OK, or DEC_OVERFLOW or DEC_UNDERFLOW with the exponent clamped. */
int dec_round(t_DECACC *s, int carry);

int deccvfix(int32_t value, t_DECIMAL *result);                    /* DEC_OK */
int dectofix(const t_DECIMAL *value, int32_t *result);             /* value not null; DEC_OK or DEC_OVERFLOW */
int deccvreal(t_DECIMAL *result, int ndecimals, double value);     /* ndecimals 2 to 15; codes as deccvdbl */
int dectoreal(const t_DECIMAL *value, double *result, int ndigit); /* uses the first ndigit digits; DEC_OK */
}

/* ---- Reading records ------------------------------------------------------------------------------------------- */

inline bool dec_isnull(const t_DECIMAL *x)
{
    return x->dec_pos == DEC_NULL;
}

inline bool dec_isnegative(const t_DECIMAL *x)
{
    return x->dec_pos == DEC_NEGATIVE;
}

/* The sign byte of a product or quotient. */
inline uint8_t dec_common_sign(const t_DECIMAL *a, const t_DECIMAL *b)
{
    return a->dec_pos ^ b->dec_pos ^ 1;
}

/* Digits in use, never outside 0 to 8. */
inline int dec_count(const t_DECIMAL *x)
{
    if (x->dec_ndgts < 0) return 0;
    return x->dec_ndgts < DEC_DIGITS ? x->dec_ndgts : int{DEC_DIGITS};
}

inline bool dec_iszero(const t_DECIMAL *x)
{
    return dec_count(x) == 0;
}

/* The digit at index i, 0 or above; a missing digit is 0. */
inline int dec_digit(const t_DECIMAL *x, int i)
{
    return i < dec_count(x) ? x->dec_dgts[i] : 0;
}

/* Below 0, 0 or above 0 as the digits of a are below, equal to or above those of b, exponents and signs aside. */
inline int dec_compare_digits(const t_DECIMAL *a, const t_DECIMAL *b)
{
    for (int i = 0; i < DEC_DIGITS; i++) {
        const int difference = dec_digit(a, i) - dec_digit(b, i);
        if (difference != 0) return difference;
    }
    return 0;
}

/* ---- Digit strings --------------------------------------------------------------------------------------------- */

/* Adds 1 to the last of count digits. True when the carry left the first one: all of them are 0 then. */
inline bool dec_carry_up(uint8_t *digits, int count)
{
    for (int i = count - 1; i >= 0; i--) {
        if (digits[i] < DEC_BASE - 1) {
            digits[i]++;
            return false;
        }
        digits[i] = 0;
    }
    return true;
}

/* Adds a decimal at a place of the digit string that is still empty. A digit has two places, the tens first. */
inline void dec_put_decimal(uint8_t *digits, int place, int decimal)
{
    const int value = place % 2 == 0 ? 10 * decimal : decimal;
    digits[place / 2] = static_cast<uint8_t>(digits[place / 2] + value);
}

/* How many of count digits remain without the zeros at the end. */
inline int dec_trim(const uint8_t *digits, int count)
{
    while (count > 0 && digits[count - 1] == 0)
        count--;
    return count;
}

/* Stores exp, clamped to the exponents of the normal form. */
inline int dec_set_exponent(int exp, int16_t *dec_exp)
{
    if (exp > DEC_EXP_MAX) {
        *dec_exp = DEC_EXP_MAX;
        return DEC_OVERFLOW;
    }
    if (exp < DEC_EXP_MIN) {
        *dec_exp = DEC_EXP_MIN;
        return DEC_UNDERFLOW;
    }
    *dec_exp = static_cast<int16_t>(exp);
    return DEC_OK;
}

/* ---- Ways to give a result ------------------------------------------------------------------------------------- */

/* The digit bytes stay as they were. */
inline int dec_give_null(t_DECIMAL *result)
{
    result->dec_exp = 0;
    result->dec_pos = DEC_NULL;
    result->dec_ndgts = 0;
    return DEC_OK;
}

/* Likewise. */
inline int dec_give_zero(t_DECIMAL *result)
{
    result->dec_exp = 0;
    result->dec_pos = DEC_POSITIVE;
    result->dec_ndgts = 0;
    return DEC_OK;
}

inline int dec_give_copy(const t_DECIMAL *value, t_DECIMAL *result)
{
    *result = *value;
    return DEC_OK;
}

/* Normalises the accumulator and copies its header and 8 digits. */
inline int dec_give(t_DECACC *acc, int carry, t_DECIMAL *result)
{
    const int code = dec_round(acc, carry);
    memcpy(result, acc, sizeof *result);
    return code;
}

#endif
