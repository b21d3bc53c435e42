// SPDX-License-Identifier: MIT
//
// Records as whole numbers, normal form, addition, comparison.
#include "model/exact.h"

#include <algorithm>
#include <cstring>

namespace model {

t_DECIMAL record(int exp, int pos, const std::vector<int> &digits)
{
    t_DECIMAL x = {};
    x.dec_exp = static_cast<int16_t>(exp);
    x.dec_pos = static_cast<uint8_t>(pos);
    x.dec_ndgts = static_cast<int8_t>(digits.size());
    std::transform(digits.begin(), digits.end(), x.dec_dgts, [](int d) { return static_cast<uint8_t>(d); });
    return x;
}

t_DECIMAL filled(int exp, int pos, int ndgts, int byte)
{
    t_DECIMAL x = {};
    x.dec_exp = static_cast<int16_t>(exp);
    x.dec_pos = static_cast<uint8_t>(pos);
    x.dec_ndgts = static_cast<int8_t>(ndgts);
    memset(x.dec_dgts, byte, sizeof x.dec_dgts);
    return x;
}

t_DECIMAL null_record()
{
    return record(0, DEC_NULL, {});
}

bool is_normal(const t_DECIMAL &x)
{
    const bool trimmed = is_zero(x) || (x.dec_dgts[0] != 0 && x.dec_dgts[x.dec_ndgts - 1] != 0);
    return trimmed && x.dec_exp >= DEC_EXP_MIN && x.dec_exp <= DEC_EXP_MAX;
}

bool same(const t_DECIMAL &a, const t_DECIMAL &b)
{
    if (is_null(a) || is_null(b)) return a.dec_pos == b.dec_pos;
    return a.dec_exp == b.dec_exp && a.dec_pos == b.dec_pos && a.dec_ndgts == b.dec_ndgts &&
           std::equal(a.dec_dgts, a.dec_dgts + a.dec_ndgts, b.dec_dgts);
}

Int power(int number, int exponent)
{
    return pow(Int(number), static_cast<unsigned>(exponent));
}

Int in_units(const t_DECIMAL &x, int exponent)
{
    Int digits = 0;
    for (int i = 0; i < x.dec_ndgts; i++)
        digits = digits * base + x.dec_dgts[i];
    const int shift = x.dec_exp - x.dec_ndgts - exponent;
    return shift >= 0 ? Int(digits * power(base, shift)) : Int(digits / power(base, -shift));
}

static std::vector<int> base_100_digits(Int units)
{
    std::vector<int> digits;
    for (; units != 0; units /= base)
        digits.push_back(static_cast<int>(Int(units % base)));
    std::reverse(digits.begin(), digits.end());
    return digits;
}

static Outcome clamped(t_DECIMAL x, int exp)
{
    x.dec_exp = static_cast<int16_t>(std::clamp<int>(exp, DEC_EXP_MIN, DEC_EXP_MAX));
    return {exp > DEC_EXP_MAX ? DEC_OVERFLOW : exp < DEC_EXP_MIN ? DEC_UNDERFLOW : DEC_OK, x};
}

Outcome normal(int pos, Int units, int exponent)
{
    if (units == 0) return {DEC_OK, record(0, DEC_POSITIVE, {})};
    const int width = static_cast<int>(base_100_digits(units).size());
    const int exp = exponent + width;
    if (width > DEC_DIGITS + 1) units /= power(base, width - DEC_DIGITS - 1);
    if (width > DEC_DIGITS) units = (units + base / 2) / base;

    std::vector<int> digits = base_100_digits(units);
    const bool carried = digits.size() > static_cast<size_t>(DEC_DIGITS);
    while (digits.back() == 0)
        digits.pop_back();
    return clamped(record(0, pos, digits), carried ? exp + 1 : exp);
}

Outcome round(int exp, int pos, const std::vector<int> &digits, int carry)
{
    Int units = std::max(carry, 0);
    for (const int d : digits)
        units = units * base + d;
    return normal(pos, units, exp - static_cast<int>(digits.size()));
}

Outcome add(const t_DECIMAL &a, const t_DECIMAL &b)
{
    if (is_null(a) || is_null(b)) return {DEC_OK, null_record()};
    if (is_zero(a)) return {DEC_OK, b};
    if (is_zero(b)) return {DEC_OK, a};

    const int top = std::max(a.dec_exp, b.dec_exp);
    const bool b_larger =
        a.dec_exp == b.dec_exp ? in_units(b, top - DEC_DIGITS) > in_units(a, top - DEC_DIGITS) : b.dec_exp == top;
    const t_DECIMAL &larger = b_larger ? b : a;
    const t_DECIMAL &smaller = b_larger ? a : b;
    if (larger.dec_exp - smaller.dec_exp > DEC_DIGITS) return {DEC_OK, larger};

    // Both in units of the larger one's ninth place; what the smaller one has below that is lost.
    const int unit = top - DEC_DIGITS - 1;
    const Int kept = in_units(smaller, unit);
    Int sum = in_units(larger, unit);
    sum += larger.dec_pos == smaller.dec_pos ? kept : Int(-kept);
    // Only a larger exponent over leading zero digits comes out below zero; the last borrow is dropped.
    if (sum < 0) sum += power(base, DEC_DIGITS + 1);
    return normal(larger.dec_pos, sum, unit);
}

Outcome subtract(const t_DECIMAL &a, const t_DECIMAL &b)
{
    if (is_null(a) || is_null(b)) return {DEC_OK, null_record()};
    if (is_zero(b)) return {DEC_OK, a};
    return add(a, change_sign(b));
}

int compare(const t_DECIMAL &a, const t_DECIMAL &b)
{
    if (is_null(a) || is_null(b)) return DEC_NOT_COMPARABLE;
    if (is_zero(a) && is_zero(b)) return 0;
    const int outward = is_negative(a) ? -1 : 1;
    if (a.dec_pos != b.dec_pos) return outward;
    if (a.dec_exp == b.dec_exp)
        return outward * in_units(a, a.dec_exp - DEC_DIGITS).compare(in_units(b, b.dec_exp - DEC_DIGITS));
    // A zero of another exponent counts as the smaller one even beside a negative value, if its sign byte is
    // negative.
    if (is_zero(a)) return -1;
    if (is_zero(b)) return 1;
    return a.dec_exp > b.dec_exp ? outward : -outward;
}

t_DECIMAL change_sign(const t_DECIMAL &x)
{
    if (is_null(x)) return null_record();
    t_DECIMAL changed = x;
    if (!is_zero(x)) changed.dec_pos = is_negative(x) ? DEC_POSITIVE : DEC_NEGATIVE;
    return changed;
}

} // namespace model
