/* SPDX-License-Identifier: MIT
 *
 * Powers of ten in 64 significant bits, and the product with one: what the fast ways between doubles and decimals
 * share. The compiler makes the table, from whole numbers; it is exact but for the cut after 64 bits. */
#ifndef KA_WIRE_TENS_H
#define KA_WIRE_TENS_H

#include <stdint.h>

namespace wire {

inline constexpr int TEN_LEAST = -144, TEN_MOST = 146;

/* A whole number of 448 bits, the lowest word first: more than 5^146 has, and 5^144 and 64 bits. */
struct t_WHOLE {
    uint32_t word[14];
};

constexpr t_WHOLE times_five(t_WHOLE x)
{
    uint64_t carry = 0;
    for (uint32_t &word : x.word) {
        carry += uint64_t{5} * word;
        word = static_cast<uint32_t>(carry);
        carry >>= 32;
    }
    return x;
}

/* Without the remainder. */
constexpr t_WHOLE over_five(t_WHOLE x)
{
    uint64_t rest = 0;
    for (int i = 13; i >= 0; i--) {
        rest = rest << 32 | x.word[i];
        x.word[i] = static_cast<uint32_t>(rest / 5);
        rest %= 5;
    }
    return x;
}

/* From the highest one that is set. */
constexpr uint64_t first_64_bits(const t_WHOLE &x)
{
    const auto bit = [&x](int place) { return place < 0 ? 0 : x.word[place / 32] >> place % 32 & 1; };
    int place = 32 * 14 - 1;
    while (bit(place) == 0)
        place--;
    uint64_t bits = 0;
    for (int i = 0; i < 64; i++)
        bits = bits << 1 | bit(place - i);
    return bits;
}

struct t_TENS {
    uint64_t of[TEN_MOST - TEN_LEAST + 1];
};

/* 10^n is 5^n * 2^n, so the bits are those of 5^n, or of (2^448 - 1) / 5^-n: divided by 5 again and again, each
   remainder dropped, a whole number is what one division would leave, and the 1 changes no quotient. */
constexpr t_TENS make_tens()
{
    t_TENS tens = {};
    t_WHOLE five = {{1}};
    for (int power = 0; power <= TEN_MOST; power++, five = times_five(five))
        tens.of[power - TEN_LEAST] = first_64_bits(five);
    t_WHOLE part = {};
    for (uint32_t &word : part.word)
        word = UINT32_MAX;
    for (int power = -1; power >= TEN_LEAST; power--) {
        part = over_five(part);
        tens.of[power - TEN_LEAST] = first_64_bits(part);
    }
    return tens;
}

/* A copy for each source that uses it: one that is shared would be a unique symbol, which keeps a library loaded. */
static constexpr t_TENS tens = make_tens();

/* The bits of 10^power from the highest one that is set, TEN_LEAST <= power <= TEN_MOST. */
static inline uint64_t ten_bits(int power)
{
    return tens.of[power - TEN_LEAST];
}

/* 2^exponent is the largest power of two in 10^power, power -400 to 350: log2(10) is a little more than
   217706 / 2^16. */
constexpr int ten_exponent(int power)
{
    return power * 217706 >> 16;
}

/* 10^power is the largest power of ten in 2^exponent, exponent -1000 to 1000. */
constexpr int ten_below(int exponent)
{
    return exponent * 78913 >> 18;
}

/* a * b / 2^64; less by 2 at most where it is made of 32-bit products, of which the lowest is left out. */
constexpr uint64_t upper_product(uint64_t a, uint64_t b)
{
#ifdef __SIZEOF_INT128__
    __extension__ typedef unsigned __int128 t_PRODUCT;
    return static_cast<uint64_t>(t_PRODUCT{a} * b >> 64);
#else
    const uint32_t a_high = static_cast<uint32_t>(a >> 32);
    const uint32_t b_high = static_cast<uint32_t>(b >> 32);
    const uint32_t right = static_cast<uint32_t>(uint64_t{a_high} * static_cast<uint32_t>(b) >> 32);
    const uint32_t left = static_cast<uint32_t>(uint64_t{b_high} * static_cast<uint32_t>(a) >> 32);
    return uint64_t{a_high} * b_high + right + left;
#endif
}

} // namespace wire

#endif
