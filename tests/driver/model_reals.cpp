// SPDX-License-Identifier: MIT
//
// REAL values by their definition, 0.d1 d2 ... * 100^dec_exp, as strings of decimals.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "driver/model.h"

namespace driver {
namespace {

// The decimals after the point of 0.ddd * 10^(2 dec_exp).
std::string decimals_of(const t_DECIMAL &real)
{
    std::string text;
    for (int i = 0; i < real.dec_ndgts; i++) {
        text += static_cast<char>('0' + real.dec_dgts[i] / 10);
        text += static_cast<char>('0' + real.dec_dgts[i] % 10);
    }
    return text;
}

} // namespace

double double_of(const t_DECIMAL &real)
{
    const std::string number = "0." + decimals_of(real) + "e" + std::to_string(2 * real.dec_exp);
    const double value = std::strtod(number.c_str(), nullptr);
    return real.dec_pos == DEC_NEGATIVE && real.dec_ndgts > 0 ? -value : value;
}

int32_t integer_of(const t_DECIMAL &real)
{
    int64_t value = 0;
    for (int i = 0; i < real.dec_exp && value <= INT32_MAX; i++)
        value = 100 * value + (i < real.dec_ndgts ? real.dec_dgts[i] : 0);
    if (real.dec_pos == DEC_NEGATIVE) value = -value;
    if (value > INT32_MAX) return INT32_MAX;
    return value < INT32_MIN ? INT32_MIN : static_cast<int32_t>(value);
}

t_DECIMAL real_of(double value)
{
    t_DECIMAL real = {};
    real.dec_pos = value < 0 ? DEC_NEGATIVE : DEC_POSITIVE;
    real.dec_exp = 1; // of a zero
    if (value == 0) return real;
    char text[40];
    std::snprintf(text, sizeof text, "%.14e", std::fabs(value)); // d.dddddddddddddde+xx
    const int point = std::atoi(text + 17) + 1;                  // 0.ddd * 10^point
    std::string decimals = text[0] + std::string(text + 2, 14);
    if (point % 2 != 0) decimals.insert(0, 1, '0');
    decimals.resize(16, '0');
    real.dec_exp = static_cast<int16_t>(point > 0 ? (point + 1) / 2 : point / 2);
    for (int i = 0; i < DEC_DIGITS; i++) {
        const auto at = static_cast<size_t>(2 * i);
        real.dec_dgts[i] = static_cast<uint8_t>(10 * (decimals[at] - '0') + decimals[at + 1] - '0');
        if (real.dec_dgts[i] != 0) real.dec_ndgts = static_cast<int8_t>(i + 1);
    }
    return real;
}

} // namespace driver
