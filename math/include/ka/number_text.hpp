// SPDX-License-Identifier: MIT
//
// Numbers of any length in text, for ka/real.hpp, which includes this, and for the caller's library. deccvasc takes
// 18 significant decimals; further ones before the point it drops without a place. A number with such decimals is
// written anew here. Nothing else is lost by that: REALs are rounded half away from zero, which the 18 decide.
#ifndef KA_NUMBER_TEXT_HPP
#define KA_NUMBER_TEXT_HPP

#include <cstdint>
#include <cstdio>

#include "ka/decimal.h"

namespace ka::detail {

inline constexpr int decimals_read = 18; // by deccvasc, significant ones
inline constexpr int exponent_max = 999; // likewise

// Part of a text: read already, or still to be read.
struct Span {
    const char *at;
    const char *end;

    bool accept(char a, char b)
    {
        if (at == end || (*at != a && *at != b)) return false;
        at++;
        return true;
    }
};

// The decimals that a number begins with.
struct Mantissa {
    char first[decimals_read]; // the first significant ones
    std::int64_t significant;  // how many there are, from the first to the last that is not 0
    std::int64_t dropped;      // by deccvasc: significant ones before the point, zeros included
};

// Takes decimals with at most one point among them from the front of text.
inline Mantissa take_mantissa(Span &text)
{
    Mantissa mantissa = {};
    std::int64_t count = 0;
    bool point_seen = false;
    for (; text.at < text.end; text.at++) {
        const char c = *text.at;
        if (c == '.' && !point_seen) {
            point_seen = true;
            continue;
        }
        if (c < '0' || c > '9') break;
        if (count == 0 && c == '0') continue;
        if (count < decimals_read)
            mantissa.first[count] = c;
        else if (!point_seen)
            mantissa.dropped++;
        count++;
        if (c != '0') mantissa.significant = count;
    }
    return mantissa;
}

// Takes e and the rest of an exponent from the front of text. A magnitude above exponent_max gives some value above
// it.
inline int take_exponent(Span &text)
{
    if (text.end - text.at < 2 || !text.accept('e', 'E')) return 0;
    const bool negative = text.accept('-', '-');
    if (!negative) text.accept('+', '+');
    int magnitude = 0;
    for (; text.at < text.end && *text.at >= '0' && *text.at <= '9'; text.at++)
        if (magnitude <= exponent_max) magnitude = magnitude * 10 + (*text.at - '0');
    return negative ? -magnitude : magnitude;
}

// Room for a sign, the decimals, an exponent, and two characters.
inline constexpr int short_number_room = 1 + decimals_read + 5 + 2 + 1;

// If text begins with a number, writes it in 18 decimals, and after it the two characters that deccvasc looks at.
// Returns the length written; 0 when deccvasc reads the number correctly, or refuses it, as it is.
inline int shorten_number(const char *text, int length, char buffer[short_number_room])
{
    Span rest = {text, text + length};
    while (rest.accept(' ', ' '))
        ;
    const bool negative = rest.accept('-', '-');
    if (!negative) rest.accept('+', '+');
    const Mantissa mantissa = take_mantissa(rest);
    const bool second_point = rest.at < rest.end && *rest.at == '.';
    const int exponent = take_exponent(rest);
    if (mantissa.dropped == 0 || second_point || exponent > exponent_max || exponent < -exponent_max) return 0;

    // A number with an exponent above exponent_max is out of range anyway.
    const std::int64_t raised = exponent + mantissa.dropped;
    int size = std::snprintf(buffer, short_number_room, "%s%.*se%d", negative ? "-" : "", decimals_read,
                             mantissa.first, static_cast<int>(raised < exponent_max ? raised : exponent_max));
    for (int i = 0; i < 2 && rest.at < rest.end; i++)
        buffer[size++] = *rest.at++;
    return size;
}

// Whether value, which was read from the number that text begins with, is that very number. Rounding leaves fewer
// significant decimals than there were.
inline bool is_exact(const char *text, int length, const t_DECIMAL &value)
{
    Span rest = {text, text + length};
    while (rest.accept(' ', ' '))
        ;
    rest.accept('+', '-');
    const std::int8_t count = value.dec_ndgts;
    const std::int64_t significant = take_mantissa(rest).significant;
    if (count == 0) return significant == 0;
    const bool short_first = value.dec_dgts[0] < 10;
    const bool short_last = value.dec_dgts[count - 1] % 10 == 0;
    return significant == 2 * count - (short_first ? 1 : 0) - (short_last ? 1 : 0);
}

} // namespace ka::detail

#endif
