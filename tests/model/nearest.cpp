// SPDX-License-Identifier: MIT
//
// Exact values of numbers in text, and numbers whose reading is hard.
#include "model/nearest.h"

#include <algorithm>

namespace model {

// An exact value: decimals * 10^exponent.
struct Value {
    bool negative;
    std::string decimals; // without a zero in front; none: the value is zero
    int exponent;
};

static Value value_of(std::string_view number)
{
    Value value = {number[0] == '-', {}, 0};
    if (number[0] == '-' || number[0] == '+') number.remove_prefix(1);
    const size_t letter = std::min(number.find_first_of("eE"), number.size());
    if (letter < number.size()) value.exponent = std::stoi(std::string(number.substr(letter + 1)));
    value.decimals = number.substr(0, letter);
    const size_t point = value.decimals.find('.');
    if (point != std::string::npos) {
        value.exponent -= static_cast<int>(value.decimals.size() - point - 1);
        value.decimals.erase(point, 1);
    }
    value.decimals.erase(0, std::min(value.decimals.find_first_not_of('0'), value.decimals.size()));
    return value;
}

static t_DECIMAL record_of(Int units, int exp, int pos)
{
    std::vector<int> digits;
    for (; units != 0; units /= base)
        if (!digits.empty() || units % base != 0) digits.push_back(static_cast<int>(Int(units % base)));
    std::reverse(digits.begin(), digits.end());
    return record(exp, pos, digits);
}

// A record with exponent e counts units of 100^(e - 8), and less than 100^8 of them.
Nearest nearest(std::string_view number)
{
    const Value value = value_of(number);
    const int pos = value.negative ? DEC_NEGATIVE : DEC_POSITIVE;
    if (value.decimals.empty()) return {true, true, record(0, pos, {})};
    const int above = static_cast<int>(value.decimals.size()) + value.exponent; // the value is below 10^above
    int exp = above > 0 ? (above + 1) / 2 : above / 2;
    const int shift = value.exponent - 2 * (exp - DEC_DIGITS);
    const Int dividend = Int(value.decimals) * power(10, std::max(shift, 0));
    const Int divisor = power(10, std::max(-shift, 0));
    const Int rest = dividend % divisor;
    Int units = dividend / divisor + (2 * rest >= divisor ? 1 : 0);
    if (units == power(base, DEC_DIGITS)) {
        units = 1;
        exp++;
    }
    return {exp >= DEC_EXP_MIN && exp <= DEC_EXP_MAX, rest == 0, record_of(units, exp, pos)};
}

static std::string draw_decimals(Draw &draw)
{
    std::string decimals;
    const int count = draw.one_in(3) ? draw.between(14, 20) : draw.between(1, 60);
    while (static_cast<int>(decimals.size()) < count) {
        const char one = static_cast<char>('0' + (draw.one_in(2) ? draw.pick({0, 0, 4, 5, 9, 9}) : draw.below(10)));
        decimals.append(static_cast<size_t>(draw.one_in(3) ? draw.between(1, 20) : 1), one);
    }
    decimals.resize(static_cast<size_t>(count));
    // Near the place where a record ends: half a unit, or a hair from it.
    if (count > 17 && draw.one_in(3)) {
        const size_t place = static_cast<size_t>(draw.between(14, 18));
        const bool above = draw.one_in(2);
        std::fill(decimals.begin() + std::min<size_t>(place, decimals.size()), decimals.end(), above ? '0' : '9');
        if (place < decimals.size()) decimals[place] = above ? '5' : '4';
        if (draw.one_in(2)) decimals.back() = above ? '1' : '8';
    }
    return decimals;
}

std::string draw_number(Draw &draw)
{
    std::string number = draw_decimals(draw);
    const int count = static_cast<int>(number.size());
    const int point = draw.one_in(4) ? count : draw.below(count + 1);
    if (point < count || draw.one_in(4)) number.insert(static_cast<size_t>(point), ".");
    const int limit = draw.one_in(2) ? 126 : -130; // about where a REAL ends
    const int exponent = draw.one_in(3)    ? limit - point + draw.between(-4, 4)
                         : draw.one_in(20) ? draw.between(-999, 999)
                                           : draw.between(-140, 140);
    if (!draw.one_in(3)) {
        number += draw.one_in(2) ? "e" : "E";
        number += (exponent >= 0 && draw.one_in(2) ? "+" : "") + std::to_string(exponent);
    }
    return (draw.one_in(3) ? draw.one_in(3) ? "+" : "-" : "") + number;
}

} // namespace model
