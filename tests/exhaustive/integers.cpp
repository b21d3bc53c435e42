// SPDX-License-Identifier: MIT
//
// Every 16-bit integer, and the neighbourhood of every power of 100 in 32 bits.
#include <gtest/gtest.h>

#include "ka/real.h"
#include "model/binary.h"
#include "model/notation.h"

using namespace model;

TEST(AllIntegers, sixteen_bits_go_both_ways)
{
    for (int value = INT16_MIN; value <= INT16_MAX; value++) {
        t_DECIMAL x = {};
        ASSERT_EQ(deccvint16(static_cast<int16_t>(value), &x), DEC_OK);
        const t_DECIMAL expected = value == INT16_MIN ? null_record() : from_integer(value);
        ASSERT_EQ(show(x), show(expected)) << value;
        int16_t back = 4711;
        ASSERT_EQ(dectoint16(&x, &back), DEC_OK) << value;
        ASSERT_EQ(back, value);
    }
}

TEST(AllIntegers, sixteen_bits_go_both_ways_as_32)
{
    for (int value = INT16_MIN; value <= INT16_MAX; value++) {
        t_DECIMAL x = {};
        ASSERT_EQ(deccvint32(value, &x), DEC_OK);
        ASSERT_EQ(show(x), show(from_integer(value)));
        int16_t narrow = 4711;
        int32_t wide = 4711;
        ASSERT_EQ(dectoint16(&x, &narrow), DEC_OK);
        ASSERT_EQ(dectoint32(&x, &wide), DEC_OK);
        ASSERT_EQ(narrow, value);
        ASSERT_EQ(wide, value);
    }
}

TEST(AllIntegers, neighbours_of_the_16_bit_limits_do_not_fit)
{
    for (int beyond = 1; beyond <= 1000; beyond++) {
        for (const int value : {INT16_MAX + beyond, INT16_MIN - beyond}) {
            const t_DECIMAL x = from_integer(value);
            int16_t result = 4711;
            ASSERT_EQ(dectoint16(&x, &result), DEC_OVERFLOW) << value;
            ASSERT_EQ(result, 4711) << value;
        }
    }
}

TEST(AllIntegers, neighbours_of_every_round_number_go_both_ways)
{
    for (int64_t step = 1; step <= 10'000'000'000; step *= 10) {
        for (int64_t times = -99; times <= 99; times++) {
            for (int64_t beside = -101; beside <= 101; beside++) {
                const int64_t value = step * times + beside;
                const t_DECIMAL x = from_integer(value);
                const bool fits = value >= INT32_MIN && value <= INT32_MAX;
                int32_t result = 4711;
                ASSERT_EQ(dectoint32(&x, &result), fits ? DEC_OK : DEC_OVERFLOW) << value;
                ASSERT_EQ(result, fits ? value : 4711) << value;
                if (!fits) continue;
                t_DECIMAL back = {};
                ASSERT_EQ(m_cv_int(result, &back), REAL_OK);
                ASSERT_TRUE(same(back, x)) << value << ": " << show(back);
            }
        }
    }
}
