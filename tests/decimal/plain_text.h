// SPDX-License-Identifier: MIT
//
// Text and digit strings character by character, as plainly as they can be written: what the library's own ways must
// agree with, byte by byte.
#pragma once

#include <cstdlib>
#include <cstring>

#include "plain_arithmetic.h"

namespace plain {

constexpr int decimals_max = 2 * ACCSIZE;
constexpr int exponent_max = 999;

struct t_READER {
    const char *at;
    const char *end;
    t_DECACC acc;
    int stored;
    int places;
    int exponent;
};

inline bool is_decimal(char c)
{
    return c >= '0' && c <= '9';
}

inline uint8_t read_sign(t_READER *r)
{
    if (r->at == r->end || (*r->at != '-' && *r->at != '+')) return DEC_POSITIVE;
    return *r->at++ == '-' ? DEC_NEGATIVE : DEC_POSITIVE;
}

inline void store_decimal(t_READER *r, int decimal)
{
    if (r->stored == 0 && decimal == 0) return;
    dec_put_decimal(r->acc.dec_dgts, r->stored, decimal);
    r->stored++;
}

inline int read_mantissa(t_READER *r)
{
    bool point_seen = false;
    for (; r->at < r->end; r->at++) {
        if (*r->at == '.') {
            if (point_seen) return DEC_BAD_TEXT;
            point_seen = true;
            continue;
        }
        if (!is_decimal(*r->at)) break;
        if (r->stored == decimals_max) continue;
        if (point_seen) r->places++;
        store_decimal(r, *r->at - '0');
    }
    return DEC_OK;
}

inline int read_exponent(t_READER *r)
{
    const bool negative = read_sign(r) == DEC_NEGATIVE;
    int magnitude = 0;
    for (; r->at < r->end && is_decimal(*r->at); r->at++) {
        magnitude = magnitude * 10 + (*r->at - '0');
        if (magnitude > exponent_max) return DEC_BAD_EXPONENT;
    }
    r->exponent = negative ? -magnitude : magnitude;
    return DEC_OK;
}

inline int read_end(const t_READER *r)
{
    return r->end - r->at <= 1 || r->at[1] == ' ' ? DEC_OK : DEC_BAD_TEXT;
}

inline int read_number(t_READER *r)
{
    int code = read_mantissa(r);
    if (code != DEC_OK) return code;
    if (r->end - r->at > 1 && (*r->at == 'e' || *r->at == 'E')) {
        r->at++;
        code = read_exponent(r);
        if (code != DEC_OK) return code;
    }
    return read_end(r);
}

inline void shift_one_decimal(t_DECACC *acc)
{
    int carried = 0;
    for (uint8_t &digit : acc->dec_dgts) {
        const int tens = digit / 10 + carried;
        carried = digit % 10 * 10;
        digit = static_cast<uint8_t>(tens);
    }
}

inline void place_point(t_READER *r)
{
    const int64_t power = int64_t{r->stored} - r->places + r->exponent;
    const bool odd = power % 2 != 0;
    int count = (r->stored + 1) / 2;
    if (odd) {
        shift_one_decimal(&r->acc);
        if (r->stored % 2 == 0 && count < ACCSIZE) count++;
    }
    const int64_t exp = (odd ? power + 1 : power) / 2;
    r->acc.dec_exp = static_cast<int16_t>(exp < INT16_MIN ? INT16_MIN : exp);
    r->acc.dec_ndgts = static_cast<int8_t>(count);
}

inline int deccvasc(const char *field, int length, t_DECIMAL *result)
{
    result->dec_pos = DEC_NULL;
    t_READER r = {};
    r.at = field;
    r.end = length > 0 ? field + length : field;
    while (r.at < r.end && *r.at == ' ')
        r.at++;
    if (r.at == r.end && length >= 0) return DEC_OK;

    const uint8_t pos = read_sign(&r);
    int code = read_number(&r);
    if (code != DEC_OK) return code;
    place_point(&r);
    code = plain::dec_give(&r.acc, 0, result);
    result->dec_pos = pos;
    return code;
}

constexpr int ds_length = 151;
inline char ds[ds_length + 1];

inline int leading_zeros(const t_DECIMAL *x)
{
    return !dec_iszero(x) && x->dec_dgts[0] < 10 ? 1 : 0;
}

inline int point_of(const t_DECIMAL *x)
{
    return 2 * x->dec_exp - leading_zeros(x);
}

inline t_DECIMAL half_unit(const t_DECIMAL *value, int n)
{
    const int place = leading_zeros(value) + n;
    t_DECIMAL unit = {};
    unit.dec_exp = static_cast<int16_t>(value->dec_exp - place / 2);
    unit.dec_pos = value->dec_pos;
    unit.dec_ndgts = 1;
    unit.dec_dgts[0] = place % 2 == 0 ? DEC_HALF : DEC_HALF / 10;
    return unit;
}

inline char decimal_at(const t_DECIMAL *x, int place)
{
    const int digit = dec_digit(x, place / 2);
    return static_cast<char>('0' + (place % 2 == 0 ? digit / 10 : digit % 10));
}

inline void write_decimals(const t_DECIMAL *x, int64_t n)
{

    const int count = n < 0 ? 0 : n > ds_length ? ds_length : static_cast<int>(n);

    const int first = leading_zeros(x);
    for (int i = 0; i < count; i++)
        ds[i] = decimal_at(x, first + i);
    ds[count] = '\0';
}

inline char *decefcvt(const t_DECIMAL *value, int ndigit, int *decpt, int *sign, int mode)
{
    ds[0] = '\0';
    if (dec_isnull(value)) return ds;
    *sign = value->dec_pos ^ 1;
    *decpt = point_of(value);
    int64_t n = mode == 0 ? ndigit : int64_t{ndigit} + *decpt;
    if (n < 0) return ds;

    t_DECIMAL rounded = *value;
    if (2 * dec_count(value) - leading_zeros(value) > n) {
        const t_DECIMAL unit = half_unit(value, static_cast<int>(n));
        if (plain::decadd(value, &unit, &rounded) != DEC_OK) return ds;
    }
    *decpt = point_of(&rounded);
    if (mode != 0) n = int64_t{ndigit} + *decpt;
    write_decimals(&rounded, n);
    return ds;
}

inline char *dececvt(const t_DECIMAL *value, int ndigit, int *decpt, int *sign)
{
    return plain::decefcvt(value, ndigit, decpt, sign, 0);
}

inline char *decfcvt(const t_DECIMAL *value, int ndigit, int *decpt, int *sign)
{
    return plain::decefcvt(value, ndigit, decpt, sign, 1);
}

struct t_FIELD {
    char *chars;
    int length;
    int used;
};

inline void put(t_FIELD *field, char c)
{
    if (field->used < field->length) field->chars[field->used++] = c;
}

inline void put_decimals(t_FIELD *field, const char *decimals, int count)
{
    for (int i = 0; i < count; i++)
        put(field, decimals[i]);
}

inline void put_zeros(t_FIELD *field, int count)
{
    for (int i = 0; i < count; i++)
        put(field, '0');
}

inline void fill(char *field, int length, char c)
{
    memset(field, c, static_cast<size_t>(length));
}

inline int places_of(const t_DECIMAL *value)
{
    const int count = dec_count(value);
    if (value->dec_exp >= count) return 0;
    const int places = 2 * (value->dec_exp < 0 ? count : count - value->dec_exp);
    return count > 1 && value->dec_dgts[count - 1] % 10 == 0 ? places - 1 : places;
}

inline const char *fixed_decimals(const t_DECIMAL *value, int length, int *places, int *decpt)
{
    int sign = 0;
    const char *decimals = plain::decfcvt(value, *places, decpt, &sign);
    const int count = static_cast<int>(strlen(decimals));
    const int width = count + (*decpt != count ? 1 : 0) + (dec_isnegative(value) ? 1 : 0);
    const int surplus = width - length;
    if (surplus <= 0 || surplus > *places) return decimals;
    *places -= surplus;
    return plain::decfcvt(value, *places, decpt, &sign);
}

inline int put_fixed(const t_DECIMAL *value, t_FIELD *field, int places)
{
    int decpt = 0;
    const char *decimals = fixed_decimals(value, field->length, &places, &decpt);
    const int count = static_cast<int>(strlen(decimals));
    const int whole = decpt < 0 ? 0 : decpt < count ? decpt : count;
    const int zeros = decpt >= 0 ? 0 : -decpt < places ? -decpt : places;

    if (dec_isnegative(value)) put(field, '-');
    if (decpt < 1) put(field, '0');
    put_decimals(field, decimals, whole);
    if (whole < count || zeros > 0) put(field, '.');
    put_zeros(field, zeros);
    put_decimals(field, decimals + whole, count - whole);
    return decpt;
}

inline int put_exponent(char *field, int length, int exponent)
{
    int at = length;
    int rest = abs(exponent);
    do {
        field[--at] = static_cast<char>('0' + rest % 10);
        rest /= 10;
    } while (rest > 0 && at > 0);
    if (exponent < 0 && at > 0) field[--at] = '-';
    if (at > 0) field[--at] = 'e';
    return at;
}

inline void put_mantissa(char *area, int length, const char *decimals)
{
    t_FIELD field = {area, length, 0};
    put(&field, decimals[0]);
    put(&field, '.');
    put_decimals(&field, decimals + 1, static_cast<int>(strlen(decimals)) - 1);
    put_zeros(&field, length - field.used);
}

inline void close_up(char *field, int length, int e)
{
    int end = e;
    while (end > 0 && field[end - 1] == '0')
        end--;
    if (end > 1 && field[end - 1] == '.') end--;
    memmove(field + end, field + e, static_cast<size_t>(length - e));
    fill(field + length - (e - end), e - end, ' ');
}

inline bool put_scientific(const t_DECIMAL *value, char *field, int length, int decpt)
{
    for (int attempt = 0; attempt < 4; attempt++) {
        fill(field, length, ' ');
        const int e = put_exponent(field, length, decpt - 1);
        const int start = dec_isnegative(value) ? 1 : 0;
        const int room = e - start;
        if (room < 1) return false;

        const int written = decpt;
        int sign = 0;
        const char *decimals = plain::dececvt(value, room > 1 ? room - 1 : 1, &decpt, &sign);
        if (decpt != written) continue;
        if (decimals[0] == '\0') return false;

        if (start > 0) field[0] = '-';
        put_mantissa(field + start, room, decimals);
        close_up(field, length, e);
        return true;
    }
    return false;
}

inline int dectoasc(const t_DECIMAL *value, char *field, int length, int places)
{
    if (length < 1) return DEC_OK;
    fill(field, length, ' ');
    if (dec_isnull(value)) return DEC_OK;

    t_FIELD fixed = {field, length, 0};
    const int decpt = put_fixed(value, &fixed, places < 0 ? places_of(value) : places);
    if (length - (dec_isnegative(value) ? 1 : 0) >= decpt) return DEC_OK;
    if (put_scientific(value, field, length, decpt)) return DEC_OK;

    const bool tiny = value->dec_exp < -1;
    fill(field, length, tiny ? ' ' : '*');
    if (tiny) field[0] = '0';
    return DEC_OK;
}

} // namespace plain
