// SPDX-License-Identifier: MIT
//
// Functions that compute with exact REALs.
#include <ka/module.hpp>
#include <numeric>

namespace {

using D = ka::decimal;

// clang-format off
void untouched(D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &,
               D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &, D &,
               D &, D &, D &, D &, D &, D &, D &, D &, D &, D &) {}
// clang-format on
void untouched_array(ka::array<D, 0>) {}

D interest(const D &principal, D rate)
{
    return ka::round(principal * rate / 100, 2);
}
void add_to(D &sum, const D &amount)
{
    sum += amount;
}
void add_to_each(ka::array<D> sums, const D &amount)
{
    for (D &each : sums)
        each += amount;
}
D total(ka::array<D> amounts)
{
    return std::accumulate(amounts.begin(), amounts.end(), D());
}
std::string text(const D &a)
{
    return a.text();
}
std::string text_to(const D &a, std::int32_t places)
{
    return a.text(places);
}
std::string read(std::string_view a)
{
    return D(a).text();
}
std::string compute(const D &a, std::string_view operation, const D &b)
{
    if (operation == "+") return (a + b).text();
    if (operation == "-") return (a - b).text();
    if (operation == "*") return (a * b).text();
    if (operation == "/") return (a / b).text();
    if (operation == "round") return ka::round(a, static_cast<int>(b.record().dec_dgts[0])).text();
    if (operation == "trunc") return ka::trunc(a, static_cast<int>(b.record().dec_dgts[0])).text();
    D changed = a;
    changed += b;
    changed -= a;
    changed *= a;
    changed /= b;
    return (changed == a ? -changed : changed).text();
}
ka::code compare(const D &a, const D &b)
{
    const bool sound = (a == b) == !(a != b) && (a < b) == (b > a) && (a <= b) == !(a > b) && (a >= b) == !(a < b);
    return ka::code(!sound ? 1001 : a < b ? -100 : a == b ? 0 : 100);
}
// The status is looked at, so the function goes on.
ka::code look_at_status(const D &a, const D &b, std::string_view read)
{
    const auto [quotient, status] = D::divide(a, b);
    const auto [number, read_status] = D::read(read);
    return ka::code(status * 1000 + read_status * 10 + (quotient > number ? 1 : 0));
}
ka::code exact_rest(ka::args rest)
{
    D sum = 0;
    for (const ka::argument each : rest)
        sum += each.exact();
    return ka::code(static_cast<std::int32_t>(sum.text().size()));
}

} // namespace

#define TEN(X) X "0", X "1", X "2", X "3", X "4", X "5", X "6", X "7", X "8", X "9"
KA_MODULE(KA_FN(untouched, TEN("a"), TEN("b"), TEN("c"), TEN("d"), TEN("e")), KA_FN(untouched_array, "values"),
          KA_FN(interest, "principal", "rate"), KA_FN(add_to, "sum", "amount"), KA_FN(add_to_each, "sums", "amount"),
          KA_FN(total, "amounts"), KA_FN(text, "a"), KA_FN(text_to, "a", "places"), KA_FN(read, "a"),
          KA_FN(compute, "a", "operation", "b"), KA_FN(compare, "a", "b"), KA_FN(look_at_status, "a", "b", "text"),
          KA_FN(exact_rest, "rest"))
