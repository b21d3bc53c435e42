/* SPDX-License-Identifier: MIT
 *
 * Text of a REAL in general form, from its decimals. */
#ifndef KA_GENERAL_TEXT_H
#define KA_GENERAL_TEXT_H

#include "real_decimals.h"

/* 0.ddd... * 10^point, the last decimal not 0 unless it is the only one. From decimals on 16 characters can be read.
 */
struct t_SHOWN {
    const char *decimals;
    int length; /* 1 to 16 */
    int point;
    bool negative;
};

/* Two characters for each digit. All at once: a processor that then reads some of them waits for pieces. */
static inline void put_digits(wire::t_REAL_DIGITS digits, char *decimals)
{
    typedef uint32_t t_WORDS __attribute__((vector_size(16)));
    typedef uint8_t t_BYTES __attribute__((vector_size(16)));
    typedef uint16_t t_PAIRS __attribute__((vector_size(16)));
    const t_BYTES bytes = __builtin_bit_cast(t_BYTES, t_WORDS{digits.first, digits.last, 0, 0});
    const t_PAIRS pairs = __builtin_bit_cast(
        t_PAIRS, __builtin_shufflevector(bytes, t_BYTES{}, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23));
    const t_PAIRS tens = pairs * 205 >> 11; /* a tenth of any number below 689 */
    const t_PAIRS characters = tens + ((pairs - 10 * tens) << 8) + 0x3030;
    memcpy(decimals, &characters, sizeof characters);
}

/* What dececvt gives for x in normal form, without the zeros at the end; in room, of 17 characters. ndigit is 1 or
   more. The last digit that counts is not 0, so only its units can be. Test: MGcvt.is_what_the_long_way_gives. */
static inline bool show_normal(const t_DECIMAL *x, int ndigit, char *room, t_SHOWN *shown)
{
    wire::t_REAL_DIGITS digits;
    if (!load_normal(x, &digits)) return false;
    int exponent = x->dec_exp;
    int zeros = (digits.first & 0xFF) < 10 ? 1 : 0;
    int count = wire::count_digits(digits);
    if (2 * count - zeros > ndigit) {
        const t_SIXTEEN rounded = round_to(join(digits, exponent), ndigit + zeros);
        digits = {wire::split_digits(rounded.first), wire::split_digits(rounded.last)};
        exponent = rounded.exponent;
        zeros = leading_zeros(rounded);
        count = wire::count_digits(digits);
    }
    put_digits(digits, room);
    const int length = 2 * count - zeros - (room[2 * count - 1] == '0' ? 1 : 0);
    *shown = {room + zeros, length, 2 * exponent - zeros, x->dec_pos == DEC_NEGATIVE};
    return true;
}

/* Exactly count characters, 0 to 16, in few steps: the second overlaps the first. Returns their end. */
static inline char *put_characters(char *out, const char *characters, int count)
{
    if (count >= 8) {
        memcpy(out, characters, 8);
        memcpy(out + count - 8, characters + count - 8, 8);
    } else if (count >= 4) {
        memcpy(out, characters, 4);
        memcpy(out + count - 4, characters + count - 4, 4);
    } else if (count > 0) {
        out[0] = characters[0];
        out[count / 2] = characters[count / 2];
        out[count - 1] = characters[count - 1];
    }
    return out + count;
}

static inline char *put_zeros(char *out, int count)
{
    while (count-- > 0)
        *out++ = '0';
    return out;
}

/* d.dddE+dd, of the exponent at least two decimals. Its magnitude is below 1000. */
static inline char *put_scientific(const t_SHOWN *shown, char *out)
{
    *out++ = shown->decimals[0];
    if (shown->length > 1) {
        *out++ = '.';
        out = put_characters(out, shown->decimals + 1, shown->length - 1);
    }
    const int exponent = shown->point - 1;
    const int magnitude = exponent < 0 ? -exponent : exponent;
    *out++ = 'E';
    *out++ = exponent < 0 ? '-' : '+';
    if (magnitude >= 100) *out++ = static_cast<char>('0' + magnitude / 100);
    *out++ = static_cast<char>('0' + magnitude / 10 % 10);
    *out++ = static_cast<char>('0' + magnitude % 10);
    return out;
}

/* ddd.ddd */
static inline char *put_fixed(const t_SHOWN *shown, char *out)
{
    if (shown->point <= 0) {
        *out++ = '0';
        *out++ = '.';
        out = put_zeros(out, -shown->point);
        return put_characters(out, shown->decimals, shown->length);
    }
    if (shown->point >= shown->length) {
        out = put_characters(out, shown->decimals, shown->length);
        return put_zeros(out, shown->point - shown->length);
    }
    out = put_characters(out, shown->decimals, shown->point);
    *out++ = '.';
    return put_characters(out, shown->decimals + shown->point, shown->length - shown->point);
}

/* In the form that shows no more than ndigit decimals, zeros after the point counted; terminated. */
static inline void put_general(const t_SHOWN *shown, int ndigit, char *out)
{
    const int point = shown->point;
    const bool scientific = point >= 0 ? ndigit < point : ndigit < shown->length - point;
    if (shown->negative) *out++ = '-';
    out = scientific ? put_scientific(shown, out) : put_fixed(shown, out);
    *out = '\0';
}

#endif
