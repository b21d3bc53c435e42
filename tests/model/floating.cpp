// SPDX-License-Identifier: MIT
//
// Floating point carried out in whole numbers.
#include "model/floating.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace model {

static bool rounds_up(const Int &kept, const Int &rest, const Int &half)
{
    return rest > half || (rest == half && bit_test(kept, 0));
}

Binary rounded(const Binary &x, int bits)
{
    if (x.m == 0) return x;
    const int surplus = static_cast<int>(msb(x.m)) + 1 - bits;
    if (surplus <= 0) return x;
    const Int kept = x.m >> surplus;
    const Int rest = x.m - (kept << surplus);
    return {rounds_up(kept, rest, Int(1) << (surplus - 1)) ? Int(kept + 1) : kept, x.e + surplus};
}

Binary times(const Binary &a, const Binary &b)
{
    return rounded({a.m * b.m, a.e + b.e}, extended_bits);
}

Binary over(const Binary &a, const Binary &b)
{
    if (a.m == 0) return a;
    // Far more bits than are kept, and one that represents any remainder.
    const int extra = 2 * extended_bits;
    const Int wide = a.m << extra;
    const int sticky = wide % b.m != 0 ? 1 : 0;
    return rounded({((wide / b.m) << 1) + sticky, a.e - b.e - extra - 1}, extended_bits);
}

bool less(const Binary &a, const Binary &b)
{
    const int e = std::min(a.e, b.e);
    return a.m << (a.e - e) < b.m << (b.e - e);
}

Binary exact(double value)
{
    int exponent = 0;
    const double fraction = std::frexp(value, &exponent);
    return {Int(std::ldexp(fraction, double_bits)), exponent - double_bits};
}

static const Binary one = {1, 0};

static const Binary &power_of_ten(int exponent)
{
    static std::vector<Binary> powers = {one};
    while (static_cast<int>(powers.size()) <= exponent)
        powers.push_back(times(powers.back(), {10, 0}));
    return powers[static_cast<size_t>(exponent)];
}

// x scaled to one place before the point, and the power of ten that was taken out.
struct Scaled {
    Binary x;
    int power;
};

static Scaled scaled(double magnitude)
{
    Binary x = exact(magnitude);
    int power = 0;
    if (magnitude < 1e-307) {
        x = over(x, exact(1e-307));
        power = -307;
    }
    // A few steps short, so that the decision is made above.
    const int near = static_cast<int>(std::fabs(std::log10(magnitude) - power)) - 2;
    if (less(x, one)) {
        int up = std::max(near, 1);
        while (less(times(x, power_of_ten(up)), one))
            up++;
        return {times(x, power_of_ten(up)), power - up};
    }
    int down = std::max(near, 0);
    while (!less(x, power_of_ten(down + 1)))
        down++;
    return {over(x, power_of_ten(down)), power + down};
}

// x * 10^places as a whole number, printed.
static std::string printed(const Binary &x, int places)
{
    const Int m = x.m * power(10, places);
    if (x.e >= 0) return Int(m << x.e).str();
    const Int whole = m >> -x.e;
    const bool up = rounds_up(whole, m - (whole << -x.e), Int(1) << (-x.e - 1));
    return Int(up ? whole + 1 : whole).str();
}

Decimals decimals_of(double magnitude, int count)
{
    if (magnitude == 0) return {std::string(static_cast<size_t>(count), '0'), 1};
    const Scaled s = scaled(magnitude);
    const std::string text = printed(rounded(s.x, double_bits), count - 1);
    const int surplus = static_cast<int>(text.size()) - count; // 1 when it became 10.0
    return {text.substr(0, static_cast<size_t>(count)), s.power + 1 + surplus};
}

} // namespace model
