// SPDX-License-Identifier: MIT
//
// Compiled without exceptions and without RTTI: what fails leaves its code behind, and the function goes on.
#include <ka/module.hpp>

namespace {

// Whether the function went on; code 0 leaves the call to the failure.
ka::code overflow(ka::string out, std::int32_t code, std::int32_t &after)
{
    out = "a text that is too long";
    out += "a text that is too long";
    after = 1;
    return ka::code(code);
}
ka::decimal divide(const ka::decimal &a, const ka::decimal &b)
{
    return a / b;
}
void both(const ka::decimal &a, ka::string out)
{
    const ka::decimal quotient = a / 0;
    out = quotient.text() + " is too long";
}
ka::code number(ka::args rest)
{
    return ka::code(rest[0].integer());
}
std::string text()
{
    return "text";
}
void resize(ka::string out, std::int32_t size)
{
    out.resize(static_cast<std::size_t>(size));
}

} // namespace

KA_MODULE(KA_FN(overflow, "out", "code", "after"), KA_FN(divide, "a", "b"), KA_FN(both, "a", "out"),
          KA_FN(number, "rest"), KA_FN(text), KA_FN(resize, "out", "size"))
