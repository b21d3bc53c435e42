/* SPDX-License-Identifier: MIT
 *
 * Why the 12 bytes of a REAL in the block are not a number that the decimal library may be given: it relies on these
 * bounds, and its texts on a first digit that is not 0. */
#ifndef KA_WIRE_REAL_FAULT_H
#define KA_WIRE_REAL_FAULT_H

#include <stdint.h>
#include <string.h>

enum t_REAL_FAULT {
    REAL_SOUND = 0,
    REAL_IS_NULL = 1,      /* a host ends when it is given one */
    REAL_BAD_SIGN = 2,     /* neither + nor - nor null */
    REAL_BAD_COUNT = 3,    /* of digits */
    REAL_BAD_EXPONENT = 4, /* of base 100 */
    REAL_BAD_DIGIT = 5,    /* above 99 */
    REAL_LEADING_ZERO = 6, /* the first digit is 0: not normal */
};

namespace wire {

/* The record: exponent (16 bits), sign, count of digits, digits. */
inline constexpr int32_t REAL_SIGN_AT = 2, REAL_COUNT_AT = 3, REAL_DIGITS_AT = 4, REAL_SIZE = 12;
inline constexpr int32_t REAL_MINUS = 0, REAL_PLUS = 1, REAL_NULL = 255;
inline constexpr int32_t REAL_DIGITS_MAX = REAL_SIZE - REAL_DIGITS_AT, REAL_DIGIT_MAX = 99;
inline constexpr int32_t REAL_EXPONENT_MIN = -64, REAL_EXPONENT_MAX = 63;

/* The first fault; *found is the field's value that is wrong. */
inline t_REAL_FAULT real_fault(const void *real, int32_t *found)
{
    unsigned char bytes[REAL_SIZE];
    int16_t exponent;
    memcpy(bytes, real, sizeof bytes);
    memcpy(&exponent, real, sizeof exponent);
    const int32_t count = static_cast<signed char>(bytes[REAL_COUNT_AT]);

    *found = bytes[REAL_SIGN_AT];
    if (*found == REAL_NULL) return REAL_IS_NULL;
    if (*found != REAL_PLUS && *found != REAL_MINUS) return REAL_BAD_SIGN;
    *found = count;
    if (count < 0 || count > REAL_DIGITS_MAX) return REAL_BAD_COUNT;
    *found = exponent;
    if (exponent < REAL_EXPONENT_MIN || exponent > REAL_EXPONENT_MAX) return REAL_BAD_EXPONENT;
    for (int i = 0; i < count; i++) {
        *found = bytes[REAL_DIGITS_AT + i];
        if (*found > REAL_DIGIT_MAX) return REAL_BAD_DIGIT;
    }
    *found = 0;
    return count > 0 && bytes[REAL_DIGITS_AT] == 0 ? REAL_LEADING_ZERO : REAL_SOUND;
}

/* A record in registers: it is read once, since a module may go on writing, and stored as it was read. A processor
   waits with a load that joins what two stores have left. */
struct t_REAL_BITS {
    uint32_t header; /* exponent, sign, count */
    uint64_t digits; /* the first one is the lowest byte */
};

inline t_REAL_BITS load_real_bits(const void *real)
{
    t_REAL_BITS bits;
    memcpy(&bits.header, real, sizeof bits.header);
    memcpy(&bits.digits, static_cast<const char *>(real) + REAL_DIGITS_AT, sizeof bits.digits);
    return bits;
}

inline void store_real_bits(t_REAL_BITS bits, void *real)
{
    memcpy(real, &bits.header, sizeof bits.header);
    memcpy(static_cast<char *>(real) + REAL_DIGITS_AT, &bits.digits, sizeof bits.digits);
}

/* Whether real_fault would find none, in few steps, for loops over arrays. Digits that are not in use are moved out.
   Of the others 28 more sets the highest bit when one is above 99; what one above 227 carries into the next does not
   matter, since its own highest bit is set already. Test: RealFault.* */
inline bool is_sound(t_REAL_BITS real)
{
    const uint32_t header = real.header;
    const uint32_t count = header >> 24;
    const bool exponent_fits = ((header - static_cast<uint32_t>(REAL_EXPONENT_MIN)) & 0xFF80) == 0;
    const bool sign_fits = (header & 0xFE0000) == 0;
    if (!exponent_fits || !sign_fits || count > static_cast<uint32_t>(REAL_DIGITS_MAX)) return false;
    if (count == 0) return true;
    const uint64_t in_use = real.digits << (64 - 8 * count);
    const bool above_99 = (((in_use + 0x1C1C1C1C1C1C1C1C) | in_use) & 0x8080808080808080) != 0;
    return !above_99 && (real.digits & 0xFF) != 0;
}

} // namespace wire

#endif
