// SPDX-License-Identifier: MIT
//
// Every conversion of a record over all its exponents, both signs and all digit counts.
#include <cmath>
#include <functional>
#include <gtest/gtest.h>

#include "ka/decimal.h"
#include "model/binary.h"
#include "model/guarded.h"
#include "model/notation.h"
#include "model/text.h"

using namespace model;

static void for_every_exponent(const std::function<void(const t_DECIMAL &)> &check)
{
    for (int exp = DEC_EXP_MIN; exp <= DEC_EXP_MAX; exp++) {
        for (const int pos : {DEC_NEGATIVE, DEC_POSITIVE}) {
            for (int ndgts = 1; ndgts <= DEC_DIGITS; ndgts++) {
                for (const int digit : {1, 9, 10, 49, 50, 99}) {
                    check(filled(exp, pos, ndgts, digit));
                    if (testing::Test::HasFatalFailure()) return;
                }
            }
        }
    }
}

TEST(AllExponents, become_the_integers_they_hold)
{
    for_every_exponent([](const t_DECIMAL &x) {
        const std::optional<int32_t> expected = to_int32(x);
        int32_t wide = 4711;
        ASSERT_EQ(dectoint32(&x, &wide), expected ? DEC_OK : DEC_OVERFLOW) << show(x);
        ASSERT_EQ(wide, expected.value_or(4711)) << show(x);
        const bool fits = expected && *expected >= INT16_MIN && *expected <= INT16_MAX;
        int16_t narrow = 4711;
        ASSERT_EQ(dectoint16(&x, &narrow), fits ? DEC_OK : DEC_OVERFLOW) << show(x);
        ASSERT_EQ(narrow, fits ? *expected : 4711) << show(x);
    });
}

TEST(AllExponents, become_floating_point)
{
    for_every_exponent([](const t_DECIMAL &x) {
        double wide = 0;
        float narrow = 0;
        ASSERT_EQ(dectodbl(&x, &wide), DEC_OK);
        ASSERT_EQ(wide, to_double(x, DEC_DIGITS)) << show(x);
        ASSERT_EQ(dectoflt(&x, &narrow), DEC_OK);
        ASSERT_EQ(narrow, to_float(x)) << show(x);
    });
}

TEST(AllExponents, come_from_floating_point)
{
    for (int exponent = -126; exponent < 128; exponent++) {
        for (const float significand : {1.0F, 1.1F, 1.5F, 1.9999999F, -1.25F}) {
            const float value = std::ldexp(significand, exponent);
            t_DECIMAL x;
            const Outcome expected = from_double(static_cast<double>(value), 6);
            ASSERT_EQ(deccvflt(value, &x), expected.code) << exponent;
            ASSERT_TRUE(same(x, expected.record)) << significand << " * 2^" << exponent << " is " << show(x);
        }
    }
}

TEST(AllExponents, become_digit_strings)
{
    for_every_exponent([](const t_DECIMAL &x) {
        for (const int count : {0, 1, 2, 5, 14, 15, 16, 17, 140, 151}) {
            for (const Count meaning : {Count::total, Count::after_point}) {
                const Digits expected = digit_string(x, count, meaning);
                int decpt = 4711;
                int sign = 4711;
                const char *text =
                    meaning == Count::total ? dececvt(&x, count, &decpt, &sign) : decfcvt(&x, count, &decpt, &sign);
                ASSERT_EQ(text, expected.text) << show(x) << " count " << count;
                ASSERT_EQ(decpt, expected.decpt.value_or(4711)) << show(x) << " count " << count;
                ASSERT_EQ(sign, expected.sign.value_or(4711)) << show(x) << " count " << count;
            }
        }
    });
}

TEST(AllExponents, are_laid_out)
{
    for_every_exponent([](const t_DECIMAL &x) {
        for (const int length : {8, 20, 40}) {
            for (const int places : {-1, 0, 5}) {
                Guarded field(length);
                dectoasc(&x, field.data(), length, places);
                ASSERT_EQ(field.text(), layout(x, length, places)) << show(x) << " length " << length;
            }
        }
    });
}
