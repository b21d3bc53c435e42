// SPDX-License-Identifier: MIT
//
// Doubles of the kinds whose decimals are hard to get right. Each draw is a statement, so that every compiler draws
// in the same order.
#include "model/doubles.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <string>

namespace model {

static double of_text(const std::string &mantissa, int exponent)
{
    return strtod((mantissa + "e" + std::to_string(exponent)).c_str(), nullptr);
}

// The double that many steps away, or zero below it.
static double neighbour(double x, int steps)
{
    return std::bit_cast<double>(std::max<int64_t>(std::bit_cast<int64_t>(x) + steps, 0));
}

static double any_bits(Draw &draw)
{
    const uint64_t exponent = draw.bits() % 2047;
    return std::bit_cast<double>(exponent << 52 | draw.bits() >> 12);
}

static double amount(Draw &draw)
{
    const uint64_t units = draw.bits() >> draw.between(11, 63);
    return static_cast<double>(units) / (draw.one_in(2) ? 100 : 1000000);
}

static double subnormal(Draw &draw)
{
    return std::bit_cast<double>(draw.bits() >> draw.between(12, 63));
}

// The scaling has two ways: one below 1e-307, another above.
static double least_scaled(Draw &draw)
{
    return neighbour(1e-307, draw.one_in(2) ? draw.between(-3, 3) : draw.between(-1000000000, 1000000000));
}

static double power_of_ten(Draw &draw)
{
    const double power = of_text("1", draw.between(-322, 308));
    return neighbour(power, draw.one_in(2) ? draw.between(-2, 2) : draw.between(-200, 200));
}

// A decimal more than are asked for, and that is a 5.
static double half(Draw &draw)
{
    const uint64_t limit = draw.one_in(2) ? 1000000000000000 : 1000000;
    const std::string decimals = std::to_string(draw.bits() % limit) + "5";
    return of_text(decimals, draw.between(-340, 290));
}

static double nines(Draw &draw)
{
    std::string decimals(static_cast<size_t>(draw.between(1, 17)), '9');
    decimals += std::to_string(draw.below(100));
    return of_text(decimals, draw.between(-340, 288));
}

// Few bits: their decimals end, often in 5.
static double dyadic(Draw &draw)
{
    const uint64_t bits = draw.bits() >> draw.between(11, 63);
    return std::ldexp(static_cast<double>(bits), draw.between(-60, 20));
}

static double single(Draw &draw)
{
    const uint32_t exponent = static_cast<uint32_t>(draw.bits() % 255);
    return static_cast<double>(std::bit_cast<float>(exponent << 23 | static_cast<uint32_t>(draw.bits() >> 41)));
}

const DoubleKind double_kinds[double_kind_count] = {
    {"any_bits", any_bits},
    {"amount", amount},
    {"subnormal", subnormal},
    {"least_scaled", least_scaled},
    {"power_of_ten", power_of_ten},
    {"half", half},
    {"nines", nines},
    {"dyadic", dyadic},
    {"single", single},
};

} // namespace model
