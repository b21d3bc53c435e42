// SPDX-License-Identifier: MIT
//
// Doubles of every exponent into records, as the C library's ecvt of this word size gives their decimals, and records
// of every exponent into doubles, as strtod reads their text.
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

#include "ka/real.h"
#include "model/notation.h"
#include "model/real.h"

using namespace model;

static double assembled(uint64_t exponent, uint64_t fraction, bool negative)
{
    const uint64_t word = (negative ? 1ULL << 63 : 0) | exponent << 52 | fraction;
    double value;
    memcpy(&value, &word, sizeof value);
    return value;
}

static const uint64_t fractions[] = {
    0, 1, 0x8000000000000, 0xFFFFFFFFFFFFF, 0x999999999999A, 0x5555555555555, 0x0000000FFFFFF, 0x7FFFFFFFFFFFF};

TEST(AllDoubles, every_exponent_becomes_the_decimals_of_ecvt)
{
    for (uint64_t exponent = 0; exponent < 2047; exponent++) {
        for (const uint64_t fraction : fractions) {
            const double value = assembled(exponent, fraction, fraction & 2);
            t_DECIMAL result = record(7, DEC_NULL, std::vector<int>(8, 77));
            const int code = deccvdbl(value, &result);
            const Outcome expected = from_double(value, 15);
            ASSERT_TRUE(code == expected.code && same(result, expected.record))
                << show(value) << "\n  expected: " << expected.code << " " << show(expected.record)
                << "\n  got:      " << code << " " << show(result);
            const Real real = real_from_double(value);
            ASSERT_EQ(m_cv_dbl(value, &result), real.status) << show(value);
            ASSERT_TRUE(same(result, real.value)) << show(value) << " gives " << show(result);
        }
    }
}

TEST(AllDoubles, every_power_of_ten_and_its_neighbours)
{
    for (int power = -330; power <= 308; power++) {
        const double middle = strtod(("1e" + std::to_string(power)).c_str(), nullptr);
        for (const double value : {middle, std::nextafter(middle, 0.0), std::nextafter(middle, 1e308), -middle}) {
            t_DECIMAL result = {};
            const int code = deccvdbl(value, &result);
            const Outcome expected = from_double(value, 15);
            ASSERT_TRUE(code == expected.code && same(result, expected.record))
                << show(value) << ": " << show(result);
        }
    }
}

TEST(AllDoubles, every_float_exponent_becomes_six_decimals)
{
    for (uint32_t exponent = 0; exponent < 255; exponent++) {
        for (const uint32_t fraction : {0U, 1U, 0x400000U, 0x7FFFFFU, 0x2AAAAAU}) {
            const uint32_t word = exponent << 23 | fraction;
            float value;
            memcpy(&value, &word, sizeof value);
            t_DECIMAL result = {};
            const int code = deccvflt(value, &result);
            const Outcome expected = from_double(value, 6);
            ASSERT_TRUE(code == expected.code && same(result, expected.record))
                << show(static_cast<double>(value)) << ": " << show(result);
        }
    }
}

// The decimals of a value rounded to 14, as a text with an exponent.
static std::string fourteen_decimals(const t_DECIMAL &x)
{
    const Digits d = digit_string(x, 14, Count::total);
    return (is_negative(x) ? "-0." : "0.") + d.text + "e" + std::to_string(*d.decpt);
}

TEST(AllDoubles, every_exponent_of_a_record_becomes_what_strtod_reads)
{
    for (int exp = DEC_EXP_MIN; exp <= DEC_EXP_MAX; exp++) {
        for (const int pos : {DEC_NEGATIVE, DEC_POSITIVE}) {
            for (const std::vector<int> &digits : {std::vector<int>{1},
                                                   {10},
                                                   {99},
                                                   {5, 50},
                                                   {12, 34, 56, 78},
                                                   {99, 99, 99, 99, 99, 99, 99},
                                                   {1, 23, 45, 67, 89, 1, 23, 45},
                                                   {98, 76, 54, 32, 10, 98, 76, 54},
                                                   {22, 25, 7, 38, 58, 50, 72, 1}}) {
                const t_DECIMAL x = record(exp, pos, digits);
                double value = 0;
                ASSERT_EQ(m_to_dbl(&x, &value), REAL_OK);
                ASSERT_EQ(show(value), show(strtod(fourteen_decimals(x).c_str(), nullptr))) << show(x);
                ASSERT_EQ(dectodbl(&x, &value), DEC_OK);
                ASSERT_EQ(show(value), show(to_double(x, DEC_DIGITS))) << show(x);
            }
        }
    }
}

// Eighty roundings to 64 bits add up to less than a twentieth of a unit of the double.
TEST(AllDoubles, every_exponent_stays_within_a_unit_of_the_exact_value)
{
    for (int exp = DEC_EXP_MIN; exp <= DEC_EXP_MAX; exp++) {
        const t_DECIMAL x = record(exp, DEC_POSITIVE, {98, 76, 54, 32, 10, 98, 76, 54});
        double value = 0;
        dectodbl(&x, &value);
        const double nearest = strtod(("0.9876543210987654e" + std::to_string(2 * exp)).c_str(), nullptr);
        ASSERT_TRUE(value == nearest || value == std::nextafter(nearest, 0.0) ||
                    value == std::nextafter(nearest, INFINITY))
            << show(x) << ": " << show(value);
    }
}
