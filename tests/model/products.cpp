// SPDX-License-Identifier: MIT
//
// Multiplication and division. Both are cut to nine places on the way, so that the exact product or quotient alone
// does not give the answer: the parts that are cut are stated here in whole numbers.
#include "model/exact.h"

#include <algorithm>

namespace model {

static constexpr int columns = DEC_DIGITS + 1;

static int sign_of_product(const t_DECIMAL &a, const t_DECIMAL &b)
{
    return a.dec_pos == b.dec_pos ? DEC_POSITIVE : DEC_NEGATIVE;
}

// The first count digits of x as a whole number; digits it does not have are 0.
static Int first_digits(const t_DECIMAL &x, int count)
{
    return in_units(x, x.dec_exp - count);
}

// Digit i of one operand and j of the other meet in column i + j. There are nine columns; what belongs further down
// is left out, so the digit i of a meets the first 9 - i digits of b.
Outcome multiply(const t_DECIMAL &a, const t_DECIMAL &b)
{
    if (is_null(a) || is_null(b)) return {DEC_OK, null_record()};
    if (is_zero(a) || is_zero(b)) return {DEC_OK, record(0, DEC_POSITIVE, {})};

    Int product = 0;
    for (int i = 0; i < a.dec_ndgts; i++)
        product += a.dec_dgts[i] * first_digits(b, columns - i);
    return normal(sign_of_product(a, b), product, a.dec_exp + b.dec_exp - columns - 1);
}

// The quotient digit is first guessed from the leading two digits of the divisor and those of the remainder, plus one
// so that the guess is never below the digit. step counts from 0; a digit in front of the current place is seen with
// one more place then.
static int guess(const Int &remainder, const t_DECIMAL &divisor, int step)
{
    const Int two = remainder / power(base, columns - 1 - step); // the digit in front and the current one
    const Int three = remainder * base / power(base, columns - 1 - step);
    const Int numerator = two >= base ? Int((two + 1) * base) : Int(three + 1);
    return static_cast<int>(std::min(Int(numerator / first_digits(divisor, 2)), Int(base - 1)));
}

bool can_divide_by(const t_DECIMAL &b)
{
    return is_null(b) || is_zero(b) || first_digits(b, 2) != 0;
}

// Long division in nine places, all numbers in units of the last: at each step the divisor moves down by one place
// and what it has below the last is cut off. Of that, only the whole part of guess times the first digit is taken
// from the remainder; it is not given back when the guess turns out too large.
// The parts that are cut off can leave a remainder as large as a divisor of 99s and a little more, and so one digit
// too many in front, as in 0.9899 / 0.9999 where both go on with 99s: nothing looks that far ahead of the current
// place.
Outcome divide(const t_DECIMAL &a, const t_DECIMAL &b)
{
    if (is_null(a) || is_null(b)) return {DEC_OK, null_record()};
    if (is_zero(b)) return {DEC_DIVISION_BY_ZERO, record(0, DEC_POSITIVE, {})};

    Int remainder = first_digits(a, columns);
    Int quotient = 0;
    for (int step = 0; step < columns; step++) {
        remainder %= power(base, columns + 1 - step);
        const int inside = columns - step;
        const Int divisor = first_digits(b, inside);
        const int first_beyond = inside < b.dec_ndgts ? b.dec_dgts[inside] : 0;

        int digit = guess(remainder, b, step);
        remainder -= digit * divisor + digit * first_beyond / base;
        for (; remainder < 0; remainder += divisor)
            digit--;
        quotient = quotient * base + digit;
    }
    // A first digit of 0 leaves eight digits, so that there is nothing to round.
    return normal(sign_of_product(a, b), quotient, a.dec_exp - b.dec_exp + 1 - columns);
}

} // namespace model
