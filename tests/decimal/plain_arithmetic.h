// SPDX-License-Identifier: MIT
//
// Arithmetic, comparison and integer conversions digit by digit, as plainly as they can be written: what the
// library's own ways must agree with, byte by byte, whatever the operands hold.
#pragma once

#include <cstring>

#include "dec_int.h"

namespace plain {

inline void put_in_front(t_DECACC *s, int carry)
{
    memmove(s->dec_dgts + 1, s->dec_dgts, ACCSIZE - 1);
    s->dec_dgts[0] = static_cast<uint8_t>(carry);
    if (s->dec_ndgts < ACCSIZE) s->dec_ndgts++;
}

inline int strip_front(t_DECACC *s)
{
    int zeros = 0;
    while (zeros < s->dec_ndgts && s->dec_dgts[zeros] == 0)
        zeros++;
    if (zeros == 0) return 0;
    const int left = s->dec_ndgts - zeros;
    memmove(s->dec_dgts, s->dec_dgts + zeros, static_cast<size_t>(left));
    memset(s->dec_dgts + left, 0, static_cast<size_t>(zeros));
    s->dec_ndgts = static_cast<int8_t>(left);
    return zeros;
}

inline bool round_guard_digit(t_DECACC *s)
{
    s->dec_ndgts = DEC_DIGITS;
    if (s->dec_dgts[DEC_DIGITS] < DEC_HALF || !dec_carry_up(s->dec_dgts, DEC_DIGITS)) return false;
    s->dec_dgts[0] = 1;
    return true;
}

inline int dec_round(t_DECACC *s, int carry)
{
    int exp = s->dec_exp;
    if (carry > 0) {
        put_in_front(s, carry);
        exp++;
    } else {
        exp -= strip_front(s);
        if (s->dec_ndgts == 0) {
            s->dec_exp = 0;
            s->dec_pos = DEC_POSITIVE;
            return DEC_OK;
        }
    }
    if (s->dec_ndgts == ACCSIZE && round_guard_digit(s)) exp++;
    s->dec_ndgts = static_cast<int8_t>(dec_trim(s->dec_dgts, s->dec_ndgts));
    return dec_set_exponent(exp, &s->dec_exp);
}

inline int dec_give(t_DECACC *acc, int carry, t_DECIMAL *result)
{
    const int code = plain::dec_round(acc, carry);
    memcpy(result, acc, sizeof *result);
    return code;
}

inline int compare_magnitudes(const t_DECIMAL *a, const t_DECIMAL *b)
{
    return a->dec_exp != b->dec_exp ? a->dec_exp - b->dec_exp : dec_compare_digits(a, b);
}

inline t_DECACC accumulator_of(const t_DECIMAL *x)
{
    const int count = dec_count(x);
    t_DECACC acc = {x->dec_exp, x->dec_pos, static_cast<int8_t>(count), {}};
    memcpy(acc.dec_dgts, x->dec_dgts, static_cast<size_t>(count));
    return acc;
}

inline int add_columns(t_DECACC *acc, const t_DECIMAL *x, int shift)
{
    const int sign = x->dec_pos == acc->dec_pos ? 1 : -1;
    const int end = dec_count(x) + shift < ACCSIZE ? dec_count(x) + shift : ACCSIZE;
    if (acc->dec_ndgts < end) acc->dec_ndgts = static_cast<int8_t>(end);
    int carry = 0;
    for (int i = end - 1; i >= 0; i--) {
        const int digit = i >= shift ? sign * x->dec_dgts[i - shift] : 0;
        const int sum = acc->dec_dgts[i] + digit + carry;
        carry = sum < 0 ? -1 : sum >= DEC_BASE ? 1 : 0;
        acc->dec_dgts[i] = static_cast<uint8_t>(sum - carry * DEC_BASE);
    }
    return carry;
}

inline int decadd(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result)
{
    if (dec_isnull(a) || dec_isnull(b)) return dec_give_null(result);
    if (dec_iszero(a)) return dec_give_copy(b, result);
    if (dec_iszero(b)) return dec_give_copy(a, result);

    const bool a_is_larger = compare_magnitudes(a, b) >= 0;
    const t_DECIMAL *larger = a_is_larger ? a : b;
    const t_DECIMAL *smaller = a_is_larger ? b : a;
    const int shift = larger->dec_exp - smaller->dec_exp;
    if (shift >= ACCSIZE) return dec_give_copy(larger, result);

    t_DECACC acc = accumulator_of(larger);
    const int carry = add_columns(&acc, smaller, shift);
    return plain::dec_give(&acc, carry, result);
}

inline int decsub(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result)
{
    if (dec_isnull(a) || dec_isnull(b)) return dec_give_null(result);
    if (dec_iszero(b)) return dec_give_copy(a, result);
    t_DECIMAL negated = *b;
    negated.dec_pos ^= 1;
    return plain::decadd(a, &negated, result);
}

inline int deccmp(const t_DECIMAL *a, const t_DECIMAL *b)
{
    if (dec_isnull(a) || dec_isnull(b)) return DEC_NOT_COMPARABLE;
    if (dec_iszero(a) && dec_iszero(b)) return 0;

    const int sign = dec_isnegative(a) ? -1 : 1;
    if (a->dec_pos != b->dec_pos) return sign;

    if (a->dec_exp != b->dec_exp) {
        if (dec_iszero(a)) return -1;
        if (dec_iszero(b)) return 1;
        return a->dec_exp > b->dec_exp ? sign : -sign;
    }
    const int difference = dec_compare_digits(a, b);
    return difference > 0 ? sign : difference < 0 ? -sign : 0;
}

inline int multiply(const t_DECIMAL *a, const t_DECIMAL *b, uint8_t *digits)
{
    int columns[ACCSIZE] = {};
    for (int i = 0; i < dec_count(a); i++)
        for (int j = 0; j < dec_count(b) && i + j < ACCSIZE; j++)
            columns[i + j] += a->dec_dgts[i] * b->dec_dgts[j];
    int carry = 0;
    for (int i = ACCSIZE - 1; i >= 0; i--) {
        const int sum = columns[i] + carry;
        digits[i] = static_cast<uint8_t>(sum % DEC_BASE);
        carry = sum / DEC_BASE;
    }
    return carry;
}

inline int decmul(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result)
{
    if (dec_isnull(a) || dec_isnull(b)) return dec_give_null(result);
    if (dec_iszero(a) || dec_iszero(b)) return dec_give_zero(result);

    t_DECACC acc = {static_cast<int16_t>(a->dec_exp + b->dec_exp - 1), dec_common_sign(a, b), ACCSIZE, {}};
    const int carry = multiply(a, b, acc.dec_dgts);
    return plain::dec_give(&acc, carry, result);
}

inline int digits_inside(const t_DECIMAL *b, int k)
{
    return dec_count(b) < ACCSIZE - k ? dec_count(b) : ACCSIZE - k;
}

inline int estimate(const int *r, const t_DECIMAL *b, int k)
{
    const int divisor = dec_digit(b, 0) * DEC_BASE + dec_digit(b, 1);
    if (divisor == 0) return DEC_BASE - 1;
    const int next = k + 1 < ACCSIZE ? r[k + 1] : 0;
    const bool long_remainder = k > 0 && r[k - 1] != 0;
    const int dividend = long_remainder ? (r[k - 1] * DEC_BASE + r[k] + 1) * DEC_BASE : r[k] * DEC_BASE + next + 1;
    return dividend / divisor < DEC_BASE ? dividend / divisor : DEC_BASE - 1;
}

inline int subtract(int *r, const t_DECIMAL *b, int k, int q)
{
    const int inside = digits_inside(b, k);
    int borrow = -(dec_digit(b, inside) * q / DEC_BASE);
    for (int j = inside - 1; j >= 0; j--) {
        const int left = r[k + j] - b->dec_dgts[j] * q + borrow;
        borrow = -((DEC_BASE - 1 - left) / DEC_BASE);
        r[k + j] = left - borrow * DEC_BASE;
    }
    return borrow;
}

inline int add_back(int *r, const t_DECIMAL *b, int k)
{
    int carry = 0;
    for (int j = digits_inside(b, k) - 1; j >= 0; j--) {
        const int sum = r[k + j] + b->dec_dgts[j] + carry;
        carry = sum >= DEC_BASE ? 1 : 0;
        r[k + j] = sum - carry * DEC_BASE;
    }
    return carry;
}

inline int divide_at(int *r, const t_DECIMAL *b, int k)
{
    int q = estimate(r, b, k);
    if (q == 0) return 0;
    int front = (k > 0 ? r[k - 1] : 0) + subtract(r, b, k, q);
    while (front < 0 && q > 0) {
        front += add_back(r, b, k);
        q--;
    }
    return q;
}

inline int decdiv(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result)
{
    if (dec_isnull(a) || dec_isnull(b)) return dec_give_null(result);
    if (dec_iszero(b)) {
        dec_give_zero(result);
        return DEC_DIVISION_BY_ZERO;
    }
    int r[ACCSIZE];
    for (int i = 0; i < ACCSIZE; i++)
        r[i] = dec_digit(a, i);
    t_DECACC acc = {static_cast<int16_t>(a->dec_exp - b->dec_exp + 1), dec_common_sign(a, b), ACCSIZE, {}};
    for (int k = 0; k < ACCSIZE; k++)
        acc.dec_dgts[k] = static_cast<uint8_t>(divide_at(r, b, k));
    return plain::dec_give(&acc, 0, result);
}

inline int deccvfix(int32_t value, t_DECIMAL *result)
{
    uint32_t rest = value < 0 ? 0U - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
    uint8_t digits[5] = {};
    int first = 5;
    while (rest > 0) {
        digits[--first] = static_cast<uint8_t>(rest % DEC_BASE);
        rest /= DEC_BASE;
    }
    const int exp = 5 - first;
    const int count = dec_trim(digits + first, exp);
    *result = {};
    result->dec_exp = static_cast<int16_t>(exp);
    result->dec_pos = value < 0 ? DEC_NEGATIVE : DEC_POSITIVE;
    result->dec_ndgts = static_cast<int8_t>(count);
    memcpy(result->dec_dgts, digits + first, static_cast<size_t>(count));
    return DEC_OK;
}

inline int deccvint16(int16_t value, t_DECIMAL *result)
{
    return value == INT16_MIN ? dec_give_null(result) : plain::deccvfix(value, result);
}

inline int deccvint32(int32_t value, t_DECIMAL *result)
{
    return value == INT32_MIN ? dec_give_null(result) : plain::deccvfix(value, result);
}

inline bool in_range(const t_DECIMAL *value)
{
    t_DECIMAL whole = *value;
    whole.dec_ndgts = static_cast<int8_t>(dec_count(value) < value->dec_exp ? dec_count(value) : value->dec_exp);
    return dec_isnegative(value) ? plain::deccmp(&whole, &c_int32_min) != -1
                                 : plain::deccmp(&whole, &c_int32_max) != 1;
}

inline int dectofix(const t_DECIMAL *value, int32_t *result)
{
    if (value->dec_exp > 0 && !in_range(value)) return DEC_OVERFLOW;
    uint32_t magnitude = 0;
    for (int i = 0; i < value->dec_exp; i++)
        magnitude = magnitude * DEC_BASE + static_cast<uint32_t>(dec_digit(value, i));
    *result = static_cast<int32_t>(dec_isnegative(value) ? 0U - magnitude : magnitude);
    return DEC_OK;
}

inline int dectoint16(const t_DECIMAL *value, int16_t *result)
{
    if (dec_isnull(value)) {
        *result = INT16_MIN;
        return DEC_OK;
    }
    int32_t wide = 0;
    if (plain::dectofix(value, &wide) != DEC_OK || wide < INT16_MIN || wide > INT16_MAX) return DEC_OVERFLOW;
    *result = static_cast<int16_t>(wide);
    return DEC_OK;
}

inline int dectoint32(const t_DECIMAL *value, int32_t *result)
{
    if (dec_isnull(value)) {
        *result = INT32_MIN;
        return DEC_OK;
    }
    return plain::dectofix(value, result);
}

} // namespace plain
