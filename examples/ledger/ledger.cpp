// SPDX-License-Identifier: MIT
//
// Amounts of money, exact to the last cent: functions get REALs as they are, and give results of more than 15
// decimals as text.
#include <ka/module.hpp>

namespace {

// Whole cents below 10^14: a REAL holds every such amount, so sums are exact if they are such amounts again.
const ka::decimal &amount(const ka::decimal &x)
{
    static const ka::decimal limit("1e14");
    if (x != round(x, 2) || x >= limit || -x >= limit) throw ka::failure(REAL_RANGE, x.text() + " is not an amount");
    return x;
}

std::string sum_texts(ka::array<std::string_view> amounts)
{
    ka::decimal total;
    for (std::string_view text : amounts) {
        const auto [value, status] = ka::decimal::read_exact(text);
        if (status != REAL_OK) throw ka::failure(status, std::string(text) + " is not an amount");
        total = amount(total + amount(value));
    }
    return total.text(2);
}

std::string difference(const ka::decimal &a, const ka::decimal &b)
{
    return amount(amount(a) - amount(b)).text(2);
}

// One year's interest. A REAL comes back with 15 decimals, so no cent is lost below 10^13.
void interest(ka::decimal &balance, const ka::decimal &percent)
{
    balance += balance * percent / 100;
}

} // namespace

KA_MODULE(KA_FN(sum_texts, ka::doc("23: an amount, or the sum, is none; 32: not a number"), "amounts",
                ka::result("sum")),
          KA_FN(difference, "a", "b"), KA_FN(interest, "balance", "percent"))
