/* SPDX-License-Identifier: MIT
 *
 * The digits of a REAL four at a time: each a byte of a 32-bit word, the first one the lowest byte. Two decimals are
 * one digit, so four digits are a number of eight decimals. */
#ifndef KA_WIRE_REAL_DIGITS_H
#define KA_WIRE_REAL_DIGITS_H

#include <stdint.h>
#include <string.h>

namespace wire {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);

/* Digits 1 to 4 and 5 to 8. */
struct t_REAL_DIGITS {
    uint32_t first, last;
};

/* Those of a record whose digits are at bytes, of which count are in use, 0 to 8; the others read as 0. */
static inline t_REAL_DIGITS load_digits(const uint8_t *bytes, int count)
{
    static constexpr uint32_t in_use[] = {0, 0, 0, 0, 0, 0xFF, 0xFFFF, 0xFFFFFF, ~0U, ~0U, ~0U, ~0U, ~0U};
    t_REAL_DIGITS digits;
    memcpy(&digits, bytes, sizeof digits);
    return {digits.first & in_use[count + 4], digits.last & in_use[count]};
}

/* Whether a digit is above 99: 28 more sets the highest bit of its byte. What a byte above 227 carries into the next
   one does not matter, since its own highest bit is set already. */
constexpr bool above_99(uint32_t digits)
{
    return (((digits + 0x1C1C1C1C) | digits) & 0x80808080) != 0;
}

/* The number of eight decimals that four digits are, by pairs and by pairs of pairs. */
constexpr uint32_t join_digits(uint32_t digits)
{
    const uint32_t pairs = (digits & 0xFF00FF) * 100 + (digits >> 8 & 0xFF00FF);
    return (pairs & 0xFFFF) * 10000 + (pairs >> 16);
}

/* The other way; decimals is below 10^8. n * 5243 / 2^19 is n / 100 for every n below 43698. */
constexpr uint32_t split_digits(uint32_t decimals)
{
    const uint32_t first = decimals / 10000;
    const uint32_t last = decimals % 10000;
    const uint32_t hundreds = (first * 5243 >> 19) | (last * 5243 >> 19) << 16;
    return hundreds | ((first | last << 16) - 100 * hundreds) << 8;
}

/* How many digits there are up to the last one that is not 0. Without a branch for the half that it is in, which
   would often be guessed wrong: of no word of digits but 0 is the highest bit set one below it. */
constexpr int count_digits(t_REAL_DIGITS digits)
{
    const uint32_t short_one = (digits.last - 1) >> 31;
    const uint32_t word = digits.last | (digits.first & (0 - short_one));
    return word == 0 ? 0 : 8 - 4 * static_cast<int>(short_one) - __builtin_clz(word) / 8;
}

} // namespace wire

#endif
