/* SPDX-License-Identifier: MIT
 *
 * Integers to records, exactly. The most negative integer of each width means null. */
#include "dec_int.h"

int deccvfix(int32_t value, t_DECIMAL *result)
{
    uint32_t rest = value < 0 ? 0U - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
    uint8_t digits[5] = {}; /* 2^32 has 5 digits; filled from the end, where zeros are not kept */
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

int deccvint16(int16_t value, t_DECIMAL *result)
{
    return value == INT16_MIN ? dec_give_null(result) : deccvfix(value, result);
}

int deccvint32(int32_t value, t_DECIMAL *result)
{
    return value == INT32_MIN ? dec_give_null(result) : deccvfix(value, result);
}
