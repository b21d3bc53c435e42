/* SPDX-License-Identifier: MIT
 *
 * The packed form: a byte of exponent and sign, then the digits, most significant first. A negative value holds the
 * complement of both, so that packed fields compare as bytes like the values they hold (zero aside, which is
 * between the positive values below 0.01 and the others). */
#include "dec_int.h"

/* Bytes of the exponent -64 to 63 of a positive value are 0x80 to 0xFF. */
static constexpr int exponent_bias = 192;
static constexpr int first_positive = 0x80;

/* Complement of the digit string to 100 at its last non-zero digit, to 99 before it. It is its own inverse. */
static void complement(uint8_t *digits, int count)
{
    count = dec_trim(digits, count);
    for (int i = 0; i < count; i++)
        digits[i] = static_cast<uint8_t>((i == count - 1 ? DEC_BASE : DEC_BASE - 1) - digits[i]);
}

/* Rounds to kept digits, half away from zero; true when that made a new first digit, one exponent higher. */
static bool round_digits(uint8_t *digits, int kept)
{
    if (digits[kept] < DEC_HALF || !dec_carry_up(digits, kept)) return false;
    digits[0] = 1;
    return true;
}

int stdecimal(const t_DECIMAL *value, void *field, int length)
{
    if (length < 1) return DEC_OK;
    memset(field, 0, static_cast<size_t>(length));
    if (dec_isnull(value)) return DEC_OK;

    /* KEPT: the exponent byte wraps, no range is checked: 99999999999999e112 rounded up in 7 bytes and a negative
       value of exponent 63 load back as null.
       Test: Stdecimal.rounding_up_at_exponent_63_wraps_the_first_byte. */
    int exponent = value->dec_exp + exponent_bias;
    uint8_t digits[DEC_DIGITS];
    int count = dec_count(value);
    memcpy(digits, value->dec_dgts, static_cast<size_t>(count));
    if (count > length - 1) {
        count = length - 1;
        if (round_digits(digits, count)) exponent++;
    }
    /* KEPT: a zero with sign byte 0 is stored without its sign, and loads as a positive zero.
       Test: Stdecimal.zero_is_stored_positive_whatever_its_sign_byte. */
    if (dec_isnegative(value) && !dec_iszero(value)) {
        exponent = ~exponent;
        complement(digits, count);
    }
    auto *bytes = static_cast<uint8_t *>(field);
    bytes[0] = static_cast<uint8_t>(exponent);
    memcpy(bytes + 1, digits, static_cast<size_t>(count));
    return DEC_OK;
}

int lddecimal(const void *field, int length, t_DECIMAL *value)
{
    const auto *bytes = static_cast<const uint8_t *>(field);
    if (length < 1 || bytes[0] == 0) return dec_give_null(value);

    int count = length - 1 < DEC_DIGITS ? length - 1 : DEC_DIGITS;
    uint8_t digits[DEC_DIGITS];
    memcpy(digits, bytes + 1, static_cast<size_t>(count));
    if (bytes[0] >= first_positive) {
        value->dec_pos = DEC_POSITIVE;
        value->dec_exp = static_cast<int16_t>(bytes[0] - exponent_bias);
    } else {
        complement(digits, count);
        value->dec_pos = DEC_NEGATIVE;
        value->dec_exp = static_cast<int16_t>(DEC_EXP_MAX - bytes[0]);
    }
    count = dec_trim(digits, count);
    value->dec_ndgts = static_cast<int8_t>(count);
    memcpy(value->dec_dgts, digits, static_cast<size_t>(count));
    return DEC_OK;
}
