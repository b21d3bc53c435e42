// SPDX-License-Identifier: MIT
//
// Packed fields, integers, and floating point carried out in whole numbers.
#include "model/binary.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <string>

#include "model/floating.h"

namespace model {

static constexpr int exponent_bias = 192;

// value as count base-100 digits.
static std::vector<int> digits_of(Int value, int count)
{
    std::vector<int> digits(static_cast<size_t>(count));
    for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit) {
        *digit = static_cast<int>(Int(value % base));
        value /= base;
    }
    return digits;
}

std::vector<uint8_t> packed(const t_DECIMAL &x, int length)
{
    std::vector<uint8_t> field(static_cast<size_t>(length), 0);
    if (is_null(x)) return field;
    const int room = length - 1;
    // The digit bytes as one number, half a unit of the last byte added where digits are dropped.
    Int bytes = in_units(x, x.dec_exp - room);
    if (x.dec_ndgts > room && x.dec_dgts[room] >= base / 2) bytes += 1;
    const Int whole = power(base, room);
    int first = x.dec_exp + exponent_bias;
    if (bytes == whole) {
        bytes /= base;
        first++;
    }
    if (is_negative(x) && !is_zero(x)) {
        bytes = (whole - bytes) % whole;
        first = ~first;
    }
    field[0] = static_cast<uint8_t>(first & 0xFF);
    const std::vector<int> digits = digits_of(bytes, room);
    std::transform(digits.begin(), digits.end(), field.begin() + 1, [](int d) { return static_cast<uint8_t>(d); });
    return field;
}

t_DECIMAL unpacked(const std::vector<uint8_t> &field)
{
    if (field[0] == 0) return null_record();
    const int count = std::min(static_cast<int>(field.size()) - 1, static_cast<int>(DEC_DIGITS));
    const Int whole = power(base, count);
    Int bytes = 0;
    for (int i = 1; i <= count; i++)
        bytes = bytes * base + field[static_cast<size_t>(i)];
    const bool negative = field[0] < 0x80;
    if (negative) bytes = (whole - bytes) % whole;
    std::vector<int> digits = digits_of(bytes, count);
    while (!digits.empty() && digits.back() == 0)
        digits.pop_back();
    const int exp = (negative ? ~field[0] & 0xFF : field[0]) - exponent_bias;
    return record(exp, negative ? DEC_NEGATIVE : DEC_POSITIVE, digits);
}

t_DECIMAL from_integer(int64_t value)
{
    return normal(value < 0 ? DEC_NEGATIVE : DEC_POSITIVE, abs(Int(value)), 0).record;
}

std::optional<int32_t> to_int32(const t_DECIMAL &x)
{
    const int64_t limit = is_negative(x) ? INT32_MIN : INT32_MAX;
    if (!is_normal(x) || is_zero(x)) {
        // Outside normal form the range test sees the exponent first: compared, not valued.
        t_DECIMAL whole = x;
        if (x.dec_exp > 0 && x.dec_ndgts > x.dec_exp) whole.dec_ndgts = static_cast<int8_t>(x.dec_exp);
        const int order = compare(whole, from_integer(limit));
        if (x.dec_exp > 0 && (is_negative(x) ? order < 0 : order > 0)) return std::nullopt;
    }
    const Int whole = in_units(x, 0);
    if (whole > abs(Int(limit))) return std::nullopt;
    const int64_t magnitude = static_cast<int64_t>(whole);
    return static_cast<int32_t>(is_negative(x) ? -magnitude : magnitude);
}

Outcome from_decimals(std::string_view digits, int decpt, bool negative)
{
    std::string text(digits);
    int exponent = decpt - static_cast<int>(text.size());
    if (exponent % 2 != 0) {
        text += '0';
        exponent--;
    }
    text.erase(0, std::min(text.find_first_not_of('0'), text.size()));
    if (!text.empty()) return normal(negative ? DEC_NEGATIVE : DEC_POSITIVE, Int(text), exponent / 2);
    // A zero keeps the exponent of its point, and its sign.
    const int exp = decpt > 0 ? (decpt + 1) / 2 : decpt / 2;
    return {DEC_OK, record(exp, negative ? DEC_NEGATIVE : DEC_POSITIVE, {})};
}

Outcome from_double(double value, int ndigit)
{
    const Decimals decimals = decimals_of(std::fabs(value), ndigit);
    return from_decimals(decimals.text, decimals.point, std::signbit(value));
}

static Binary plus(const Binary &x, int digit)
{
    if (x.m == 0) return {digit, 0};
    const int e = std::min(x.e, 0);
    return rounded({(x.m << (x.e - e)) + (Int(digit) << -e), e}, extended_bits);
}

double nearest_double(const Int &m, int exponent10)
{
    Int power = 1;
    for (int i = std::abs(exponent10); i > 0; i--)
        power *= 10;
    Binary value = {m * power, 0};
    if (exponent10 < 0) {
        // More bits than are kept, and one that represents any remainder.
        const int extra = static_cast<int>(msb(power)) + 2 * extended_bits;
        const Int wide = m << extra;
        value = {((wide / power) << 1) + (wide % power != 0 ? 1 : 0), -extra - 1};
    }
    const Binary stored = rounded(value, 53);
    return std::ldexp(static_cast<double>(stored.m), stored.e);
}

double to_double(const t_DECIMAL &x, int digits)
{
    const Binary hundred = {base, 0};
    Binary sum = {0, 0};
    for (int i = std::min<int>(digits, x.dec_ndgts) - 1; i >= 0; i--)
        sum = over(plus(sum, x.dec_dgts[i]), hundred);
    for (int i = 0; i < x.dec_exp; i++)
        sum = times(sum, hundred);
    for (int i = 0; i > x.dec_exp; i--)
        sum = over(sum, hundred);
    const Binary stored = rounded(sum, 53);
    const double magnitude = std::ldexp(static_cast<double>(stored.m), stored.e);
    return is_negative(x) ? -magnitude : magnitude;
}

float to_float(const t_DECIMAL &x)
{
    return static_cast<float>(to_double(x, 6));
}

} // namespace model
