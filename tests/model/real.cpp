// SPDX-License-Identifier: MIT
//
// The policy of the REAL layer, and its general number format.
#include "model/real.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "ka/real.h"

namespace model {

static const t_DECIMAL zero = record(0, DEC_POSITIVE, {});

t_DECIMAL huge(bool negative)
{
    return record(63, negative ? DEC_NEGATIVE : DEC_POSITIVE, std::vector<int>(7, 99));
}

int sign(const t_DECIMAL &x)
{
    return is_zero(x) ? 0 : is_negative(x) ? -1 : 1;
}

// negative: the sign of the largest REAL where that is stored.
static Real settled(const Outcome &outcome, bool negative)
{
    switch (outcome.code) {
    case DEC_OK:
        return {REAL_OK, outcome.record};
    case DEC_OVERFLOW:
        return {REAL_RANGE, huge(negative)};
    case DEC_UNDERFLOW:
        return {REAL_RANGE, zero};
    case DEC_DIVISION_BY_ZERO:
        return {REAL_DIVISION_BY_ZERO, huge(negative)};
    default:
        return {REAL_NOT_NUMBER, zero};
    }
}

static Real settled(const Outcome &outcome)
{
    return settled(outcome, sign(outcome.record) < 0);
}

// The sign of a substitute is that of the operands, zero counting as positive;
// the result is not asked.
Real real_add(const t_DECIMAL &a, const t_DECIMAL &b)
{
    return settled(add(a, b), sign(a) < 0 && sign(b) < 0);
}

Real real_subtract(const t_DECIMAL &a, const t_DECIMAL &b)
{
    return settled(subtract(a, b), sign(a) < 0 && sign(b) >= 0);
}

Real real_multiply(const t_DECIMAL &a, const t_DECIMAL &b)
{
    return settled(multiply(a, b), (sign(a) < 0) != (sign(b) < 0));
}

Real real_divide(const t_DECIMAL &a, const t_DECIMAL &b)
{
    return settled(divide(a, b), (sign(a) < 0) != (sign(b) < 0));
}

Real real_to_places(const t_DECIMAL &x, int places)
{
    const Outcome rounded = to_places(x, places);
    return {REAL_OK, rounded.code == DEC_OVERFLOW ? huge(sign(x) < 0) : rounded.record};
}

Real real_cut(const t_DECIMAL &x, int places)
{
    return {REAL_OK, cut_to_places(x, places).record};
}

// The largest value of so many decimals, of which the first is the upper one of
// its base-100 digit.
static t_DECIMAL nines(int exp, int pos, int count)
{
    std::vector<int> digits(static_cast<size_t>(std::min(count / 2, 7)), 99);
    if (count % 2 == 1 && count < 14) digits.push_back(90);
    return record(exp, pos, digits);
}

Real with_precision(const t_DECIMAL &x, int ndigits)
{
    // Places of the fraction that the digits make; a first digit below 10 begins
    // it with a 0, which does not count.
    const int places = ndigits + (!is_zero(x) && x.dec_dgts[0] < 10 ? 1 : 0);
    const int whole_digits = places / 2;
    if (x.dec_ndgts <= whole_digits) return {REAL_OK, is_zero(x) ? zero : x};

    const Int unit = power(10, 2 * DEC_DIGITS - places);
    Int rounded = (in_units(x, x.dec_exp - DEC_DIGITS) + unit / 2) / unit;
    if (places % 2 == 1) rounded *= 10;
    std::vector<int> digits(static_cast<size_t>(1 + whole_digits + places % 2));
    for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit, rounded /= base)
        *digit = static_cast<int>(Int(rounded % base));

    // Zero digits stay, but for an upper decimal of 0 and for the digit that the
    // rounding turned from 99 to 0.
    if (places % 2 == 1 && digits.back() == 0) digits.pop_back();
    if (whole_digits > 0 && digits.back() == 0 && x.dec_dgts[whole_digits - 1] == 99) digits.pop_back();
    const bool carried = digits.front() == 1;
    if (!carried) digits.erase(digits.begin());
    if (digits.empty()) return {REAL_OK, zero};
    const int exp = x.dec_exp + (carried ? 1 : 0);
    if (exp > DEC_EXP_MAX) return {REAL_RANGE, nines(x.dec_exp, x.dec_pos, places)};
    return {REAL_OK, record(exp, x.dec_pos, digits)};
}

Real real_from_double(double value)
{
    if (std::isnan(value) || value == -INFINITY) return {REAL_RANGE, zero};
    if (value == INFINITY) return {REAL_RANGE, huge(false)};
    return settled(from_double(value, 15));
}

Real real_from_integer(int32_t value)
{
    return {REAL_OK, from_integer(value)};
}

std::optional<Real> real_from_text(std::string_view text)
{
    const Outcome read = parse(text);
    if (read.code == DEC_OK && is_null(read.record)) return std::nullopt;
    return settled(read);
}

Real real_from_field(const std::vector<uint8_t> &field)
{
    const t_DECIMAL read = unpacked(field);
    if (is_null(read)) return {REAL_NULL_FIELD, zero};
    return {REAL_OK, read};
}

Integer real_to_integer(const t_DECIMAL &x)
{
    if (const std::optional<int32_t> whole = to_int32(x)) return {REAL_OK, *whole};
    return {REAL_NOT_INTEGER, sign(x) < 0 ? INT32_MIN : INT32_MAX};
}

static std::string exponent_form(const std::string &digits, int decpt)
{
    char exponent[16];
    snprintf(exponent, sizeof exponent, "E%+03d", decpt - 1);
    return digits.substr(0, 1) + (digits.size() > 1 ? "." + digits.substr(1) : "") + exponent;
}

static std::string fixed_form(std::string digits, int decpt)
{
    if (decpt <= 0) return "0." + std::string(static_cast<size_t>(-decpt), '0') + digits;
    const size_t before = static_cast<size_t>(decpt);
    if (digits.size() < before) digits.resize(before, '0');
    return digits.substr(0, before) + (digits.size() > before ? "." + digits.substr(before) : "");
}

std::optional<std::string> real_general(const t_DECIMAL &x, int ndigit)
{
    if (ndigit <= 0) return "";
    const Digits d = digit_string(x, ndigit, Count::total);
    // Rounding past the largest exponent of a record leaves no digits: the one
    // digit it would have made is known.
    if (d.text.empty() && is_normal(x)) return is_negative(x) ? "-1E+126" : "1E+126";
    if (d.text.empty()) return std::nullopt;
    if (d.text[0] == '0') return "0";
    const std::string digits = d.text.substr(0, d.text.find_last_not_of('0') + 1);
    const int decpt = *d.decpt;
    // The fixed form is used if it shows no more than ndigit decimals, the
    // zeros after the point counted.
    const bool fits = decpt >= 0 ? decpt <= ndigit : static_cast<int>(digits.size()) - decpt <= ndigit;
    return (*d.sign ? "-" : "") + (fits ? fixed_form(digits, decpt) : exponent_form(digits, decpt));
}

std::optional<double> real_to_double(const t_DECIMAL &x)
{
    const Digits d = digit_string(x, 14, Count::total);
    if (d.text.empty() && !is_normal(x)) return std::nullopt;
    // Fourteen nines and more at the largest exponent: only there do the digits
    // of a normal value round past a record.
    if (d.text.empty()) return is_negative(x) ? -1e126 : 1e126;
    if (d.text[0] == '0') return 0; // as the general format shows it, without a sign
    const double magnitude = nearest_double(Int(d.text), *d.decpt - static_cast<int>(d.text.size()));
    return *d.sign ? -magnitude : magnitude;
}

std::string real_layout(const t_DECIMAL &x, int length, int places)
{
    const std::string field = layout(x, length, places);
    return field.substr(0, std::max<size_t>(field.find_last_not_of(' ') + 1, 1));
}

} // namespace model
