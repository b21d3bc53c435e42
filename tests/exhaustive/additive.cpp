// SPDX-License-Identifier: MIT
//
// Addition, subtraction and comparison of all one-digit and two-digit leading pairs in every alignment, and the
// normaliser over every guard digit.
//
// The sums here are small enough for machine integers, so that millions of them can be tried: both operands in units
// of the ninth digit of the larger one, which is 100^8 of the first digit's units at most.
#include <cstring>
#include <gtest/gtest.h>

#include "dec_int.h"
#include "model/exact.h"
#include "model/notation.h"

using namespace model;

static t_DECIMAL number(int exp, int first, int second)
{
    return record(exp, DEC_POSITIVE, second ? std::vector<int>{first, second} : std::vector<int>{first});
}

static void check(const t_DECIMAL &a, const t_DECIMAL &b, int order)
{
    t_DECIMAL sum;
    t_DECIMAL difference;
    const Outcome expected_sum = add(a, b);
    const Outcome expected_difference = subtract(a, b);
    ASSERT_EQ(decadd(&a, &b, &sum), expected_sum.code);
    ASSERT_EQ(decsub(&a, &b, &difference), expected_difference.code);
    ASSERT_TRUE(same(sum, expected_sum.record)) << show(a) << " + " << show(b) << " gives " << show(sum);
    ASSERT_TRUE(same(difference, expected_difference.record))
        << show(a) << " - " << show(b) << " gives " << show(difference);
    ASSERT_EQ(deccmp(&a, &b), order) << show(a) << "  " << show(b);
}

TEST(AllPairs, one_digit_in_every_alignment)
{
    for (int first = 1; first < base; first++) {
        for (int second = 1; second < base; second++) {
            for (int distance = 0; distance <= 10; distance++) {
                const int order = distance ? 1 : (first > second) - (first < second);
                check(number(3, first, 0), number(3 - distance, second, 0), order);
                check(number(3 - distance, second, 0), number(3, first, 0), -order);
                if (HasFatalFailure()) return;
            }
        }
    }
}

// units * 100^exp as a record. Two digits on either side are few enough for machine integers, without the model.
static std::string exact(int64_t units, int exp)
{
    std::vector<int> digits;
    for (int64_t rest = units < 0 ? -units : units; rest > 0; rest /= base)
        digits.insert(digits.begin(), static_cast<int>(rest % base));
    exp += static_cast<int>(digits.size());
    while (!digits.empty() && digits.back() == 0)
        digits.pop_back();
    if (digits.empty()) exp = 0;
    return show(record(exp, units < 0 ? DEC_NEGATIVE : DEC_POSITIVE, digits));
}

static void check_exact(const t_DECIMAL &a, const t_DECIMAL &b, int64_t sum, int64_t difference, int exp)
{
    t_DECIMAL result;
    decadd(&a, &b, &result);
    if (show(result) != exact(sum, exp)) FAIL() << show(a) << " + " << show(b) << " gives " << show(result);
    decsub(&a, &b, &result);
    if (show(result) != exact(difference, exp)) FAIL() << show(a) << " - " << show(b) << " gives " << show(result);
}

TEST(AllPairs, two_digits_against_one_and_two)
{
    const int firsts[] = {1, 2, 9, 10, 11, 33, 49, 50, 51, 67, 89, 90, 98, 99};
    const int seconds[] = {0, 1, 49, 50, 99};
    for (int first = 1; first < base; first++) {
        for (int second = 0; second < base; second++) {
            const t_DECIMAL a = number(0, first, second);
            const int64_t a_units = first * base + second;
            for (const int other : firsts) {
                for (const int last : seconds) {
                    const t_DECIMAL b = number(0, other, last);
                    const int64_t b_units = other * base + last;
                    check_exact(a, b, a_units + b_units, a_units - b_units, -2);
                    if (HasFatalFailure()) return;
                }
            }
        }
    }
}

// Every ninth digit over every eighth one, after a run of 99s of every length, with and without a carry in front.
TEST(AllPairs, guard_digit_over_runs_of_99)
{
    for (int guard = 0; guard < base; guard++) {
        for (int eighth = 0; eighth < base; eighth++) {
            for (int nines = 0; nines <= 7; nines++) {
                std::vector<int> digits(ACCSIZE, 99);
                std::fill_n(digits.begin(), 7 - nines, 12);
                digits[7] = eighth;
                digits[8] = guard;
                for (const int carry : {0, 1}) {
                    t_DECACC acc = {5, DEC_NEGATIVE, ACCSIZE, {}};
                    std::copy(digits.begin(), digits.end(), acc.dec_dgts);
                    const int code = dec_round(&acc, carry);
                    t_DECIMAL result;
                    memcpy(&result, &acc, sizeof result);
                    const Outcome expected = model::round(5, DEC_NEGATIVE, digits, carry);
                    ASSERT_TRUE(code == expected.code && same(result, expected.record))
                        << "guard " << guard << " eighth " << eighth << " nines " << nines << " carry " << carry
                        << ": " << show(result);
                }
            }
        }
    }
}
