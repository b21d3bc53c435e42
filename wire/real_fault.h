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

} // namespace wire

#endif
