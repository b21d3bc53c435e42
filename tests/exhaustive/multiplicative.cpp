// SPDX-License-Identifier: MIT
//
// The four operations over all pairs of one-digit operands, against the model, and of two-digit operands, against
// machine integers: these need no more than 32 bits for a product or a remainder.
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>

#include "model/exact.h"
#include "model/notation.h"
#include "model/rounds.h"

using namespace model;

static t_DECIMAL signed_digit(int exp, int pos, int digit)
{
    return record(exp, pos, {digit});
}

// Exponents in the middle and at the ends, so that results fall inside and outside of the range.
TEST(AllPairs, products_and_quotients_of_one_digit)
{
    const int exponents[][2] = {{1, 1},   {0, 5},   {63, 1},    {63, 0},  {63, 63},
                                {-64, 0}, {-64, 1}, {-64, -64}, {-64, 63}};
    for (int first = 1; first < base; first++) {
        for (int second = 1; second < base; second++) {
            for (const auto &[a_exp, b_exp] : exponents) {
                const t_DECIMAL a = signed_digit(a_exp, first % 2, first);
                const t_DECIMAL b = signed_digit(b_exp, second % 2, second);
                t_DECIMAL result;
                Outcome expected = multiply(a, b);
                ASSERT_EQ(decmul(&a, &b, &result), expected.code) << show(a) << " * " << show(b);
                ASSERT_TRUE(same(result, expected.record))
                    << show(a) << " * " << show(b) << " gives " << show(result);
                expected = divide(a, b);
                ASSERT_EQ(decdiv(&a, &b, &result), expected.code) << show(a) << " / " << show(b);
                ASSERT_TRUE(same(result, expected.record))
                    << show(a) << " / " << show(b) << " gives " << show(result);
            }
        }
    }
}

// A number of up to two digits: whole is 100 to 9999, its value whole / 100.
static t_DECIMAL two_digits(int whole)
{
    t_DECIMAL x = {1, DEC_POSITIVE, 2, {}};
    x.dec_dgts[0] = static_cast<uint8_t>(whole / base);
    x.dec_dgts[1] = static_cast<uint8_t>(whole % base);
    if (x.dec_dgts[1] == 0) x.dec_ndgts = 1;
    return x;
}

// The record of the digits, of which exp are before the point; nine of them are rounded to eight.
struct Digits {
    int exp;
    int count;
    int digit[DEC_DIGITS + 2];
};

static bool is(const t_DECIMAL &x, int pos, Digits expected)
{
    int first = 0;
    while (first < expected.count && expected.digit[first] == 0)
        first++;
    while (expected.count > first && expected.digit[expected.count - 1] == 0)
        expected.count--;
    const int count = expected.count - first;
    if (count == 0) return x.dec_exp == 0 && x.dec_pos == DEC_POSITIVE && x.dec_ndgts == 0;
    bool equal = x.dec_exp == expected.exp - first && x.dec_pos == pos && x.dec_ndgts == count;
    for (int i = 0; equal && i < count; i++)
        equal = x.dec_dgts[i] == expected.digit[first + i];
    return equal;
}

static Digits whole_digits(uint32_t whole, int exp)
{
    Digits digits = {exp, 4, {}};
    for (int i = 3; i >= 0; i--, whole /= static_cast<uint32_t>(base))
        digits.digit[i] = static_cast<int>(whole % static_cast<uint32_t>(base));
    return digits;
}

// Long division. Down to the eighth digit it is exact. At the ninth the divisor's second digit is below the last
// place: the digit is guessed, what the guess takes there is cut off, and stays taken when the guess is too large.
static Digits quotient_digits(int a, int b)
{
    Digits digits = {1, DEC_DIGITS + 1, {}};
    int rest = a;
    for (int i = 0; i < DEC_DIGITS; i++, rest = rest % b * base)
        digits.digit[i] = rest / b;
    rest /= base;
    const int guess = (rest >= base ? (rest + 1) * base : rest * base + 1) / b;
    int &last = digits.digit[DEC_DIGITS];
    last = guess < base ? guess : base - 1;
    for (rest -= last * (b / base) + last * (b % base) / base; rest < 0; rest += b / base)
        last--;
    if (digits.digit[0] == 0) return digits;

    digits.count = DEC_DIGITS;
    int carry = last >= base / 2;
    for (int i = DEC_DIGITS - 1; i >= 0 && carry; i--) {
        carry = digits.digit[i] == base - 1;
        digits.digit[i] = carry ? 0 : digits.digit[i] + 1;
    }
    return digits;
}

static bool four_operations_are_right(int a_whole, int b_whole)
{
    const t_DECIMAL a = two_digits(a_whole);
    const t_DECIMAL b = two_digits(b_whole);
    t_DECIMAL result;
    bool right = decadd(&a, &b, &result) == DEC_OK &&
                 is(result, DEC_POSITIVE, whole_digits(static_cast<uint32_t>(a_whole + b_whole), 3));
    right &=
        decsub(&a, &b, &result) == DEC_OK && is(result, a_whole < b_whole ? DEC_NEGATIVE : DEC_POSITIVE,
                                                whole_digits(static_cast<uint32_t>(std::abs(a_whole - b_whole)), 3));
    right &= decmul(&a, &b, &result) == DEC_OK &&
             is(result, DEC_POSITIVE, whole_digits(static_cast<uint32_t>(a_whole * b_whole), 2));
    right &= decdiv(&a, &b, &result) == DEC_OK && is(result, DEC_POSITIVE, quotient_digits(a_whole, b_whole));
    return right;
}

// All 9900 * 9900 pairs take half a minute and are left to the long mode (KA_FOR, however short the time). Otherwise
// each first operand meets one second operand in eight, the next one another eighth, so that every operand and every
// pair of first digits occurs.
TEST(AllPairs, four_operations_on_two_digits)
{
    const int step = Rounds::timed() ? 1 : 8;
    const int last = base * base - 1;
    long tried = 0;
    for (int a = base; a <= last; a++) {
        for (int b = base + a % step; b <= last; b += step) {
            tried++;
            if (!four_operations_are_right(a, b)) FAIL() << show(two_digits(a)) << " and " << show(two_digits(b));
        }
    }
    printf("%ld of 98010000 pairs\n", tried);
}
