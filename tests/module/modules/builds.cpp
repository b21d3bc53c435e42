// SPDX-License-Identifier: MIT
//
// A module that is built in every way, by both compilers.
#include <ka/module.hpp>

namespace {

double area(double radius)
{
    return 3.14159265358979 * radius * radius;
}
void twice(ka::array<std::int32_t> values)
{
    for (ka::integer &x : values)
        x *= 2;
}
std::string greet(std::string_view who)
{
    return "Hello, " + std::string(who);
}
ka::decimal interest(const ka::decimal &p, const ka::decimal &r)
{
    return ka::round(p * r / 100, 2);
}
void nothing() {}

} // namespace

KA_MODULE(KA_FN(area, ka::doc("the area of a circle"), "radius", ka::doc("not its diameter")), KA_FN(twice, "values"),
          KA_FN(greet, "who"), KA_FN_AS("INTEREST", interest, "principal", "rate", ka::result("amount")),
          KA_FN(nothing))
