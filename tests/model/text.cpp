// SPDX-License-Identifier: MIT
//
// Digit strings and layout: which decimals are shown, and how they are set in a field.
#include "model/text.h"

#include <algorithm>

namespace model {

static constexpr int longest_digit_string = 151;

std::string decimals(const t_DECIMAL &x)
{
    std::string text;
    for (int i = 0; i < x.dec_ndgts; i++)
        text += {static_cast<char>('0' + x.dec_dgts[i] / 10), static_cast<char>('0' + x.dec_dgts[i] % 10)};
    if (!is_zero(x) && text[0] == '0') text.erase(0, 1);
    return text;
}

int decimals_before_point(const t_DECIMAL &x)
{
    return 2 * x.dec_exp - (!is_zero(x) && x.dec_dgts[0] < 10 ? 1 : 0);
}

// 5 * 10^exponent with the sign of another value.
static t_DECIMAL five(int exponent, int pos)
{
    const int lower = exponent >= 0 ? exponent / 2 : (exponent - 1) / 2;
    return record(lower + 1, pos, {exponent == 2 * lower ? 5 : 50});
}

Digits digit_string(const t_DECIMAL &x, int count, Count meaning)
{
    if (is_null(x)) return {};
    const auto wanted = [&](const t_DECIMAL &shown) {
        return meaning == Count::total ? count : static_cast<long long>(count) + decimals_before_point(shown);
    };
    const int decpt = decimals_before_point(x);
    const Digits nothing = {"", decpt, is_negative(x) ? 1 : 0};
    const long long n = wanted(x);
    if (n < 0) return nothing;

    // Half a unit of the last decimal shown, added away from zero; what is below that decimal is then left out.
    t_DECIMAL shown = x;
    if (!is_zero(x) && static_cast<long long>(decimals(x).size()) > n) {
        const Outcome sum = add(x, five(decpt - static_cast<int>(n) - 1, x.dec_pos));
        if (sum.code != DEC_OK) return nothing;
        shown = sum.record;
    }
    std::string text = decimals(shown);
    text.resize(static_cast<size_t>(std::clamp<long long>(wanted(shown), 0, longest_digit_string)), '0');
    return {text, decimals_before_point(shown), nothing.sign};
}

// As many places as the fraction has digits, two for each; an even last decimal of 0 is left out beside other digits.
static int natural_places(const t_DECIMAL &x)
{
    if (x.dec_exp >= x.dec_ndgts) return 0;
    const int fraction_digits = x.dec_ndgts - std::max<int>(x.dec_exp, 0);
    const bool trailing_zero = x.dec_ndgts > 1 && x.dec_dgts[x.dec_ndgts - 1] % 10 == 0;
    return 2 * fraction_digits - (trailing_zero ? 1 : 0);
}

static std::string fixed_text(const Digits &d, int places)
{
    const size_t before = static_cast<size_t>(std::max(*d.decpt, 0));
    const std::string whole = *d.decpt > 0 ? d.text.substr(0, before) : "0";
    const size_t gap = static_cast<size_t>(std::min(std::max(-*d.decpt, 0), places));
    const std::string fraction = std::string(gap, '0') + (before < d.text.size() ? d.text.substr(before) : "");
    return (*d.sign ? "-" : "") + whole + (fraction.empty() ? "" : "." + fraction);
}

static std::string set_in(std::string text, int length)
{
    text.resize(static_cast<size_t>(length), ' ');
    return text;
}

// d.ddde12 with as many decimals as the field leaves room for.
static std::string scientific(const Digits &d, bool with_point)
{
    std::string mantissa = d.text.substr(0, 1);
    if (with_point) mantissa += "." + d.text.substr(1);
    while (!mantissa.empty() && mantissa.back() == '0')
        mantissa.pop_back();
    if (!mantissa.empty() && mantissa.back() == '.') mantissa.pop_back();
    return (*d.sign ? "-" : "") + mantissa + "e" + std::to_string(*d.decpt - 1);
}

static std::string exponent_text(const t_DECIMAL &x, int length, int decpt)
{
    // Rounding may make the exponent longer, once; leading zero digits make it alternate for ever, which shows
    // nothing.
    for (int tries = 0; tries < 3; tries++) {
        const int exponent_size = 1 + static_cast<int>(std::to_string(decpt - 1).size());
        const int room = length - exponent_size - (is_negative(x) ? 1 : 0);
        if (room < 1) break;
        const Digits d = digit_string(x, std::max(room - 1, 1), Count::total);
        // Rounded past the largest record.
        if (d.text.empty()) break;
        if (*d.decpt == decpt) return set_in(scientific(d, room > 1), length);
        decpt = *d.decpt;
    }
    return x.dec_exp < -1 ? set_in("0", length) : std::string(static_cast<size_t>(length), '*');
}

std::string layout(const t_DECIMAL &x, int length, int places)
{
    if (length == 0 || is_null(x)) return std::string(static_cast<size_t>(length), ' ');
    if (places < 0) places = natural_places(x);
    const int minus = is_negative(x) ? 1 : 0;
    Digits d = digit_string(x, places, Count::after_point);
    const int size = static_cast<int>(d.text.size());
    const int surplus = size + (*d.decpt != size ? 1 : 0) + minus - length;
    // Surplus places are rounded away; where that is not enough, the text is cut at the end of the field instead.
    if (surplus > 0 && surplus <= places) {
        places -= surplus;
        d = digit_string(x, places, Count::after_point);
    }
    if (length - minus >= *d.decpt) return set_in(fixed_text(d, places), length);
    return exponent_text(x, length, *d.decpt);
}

} // namespace model
