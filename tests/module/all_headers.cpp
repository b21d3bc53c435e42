// SPDX-License-Identifier: MIT
//
// All C++ headers in one file, those of modules, of their unit tests and of callers: no name of one is in the way of
// another. It is only compiled: nobody is caller and module at once.
#include "ka/caller.hpp"
#include "ka/module.hpp"
#include "ka/module_test.hpp"
#include "ka/real.hpp"

static_assert(!std::is_same_v<ka::Decimal, ka::decimal>, "one is text, the other a REAL");

namespace {

std::string number(const ka::decimal &exact)
{
    return ka::Decimal(exact.record()).text;
}

// One spelling for both.
[[maybe_unused]] std::int32_t both(ka::Host &host, std::vector<double> &values, std::string &text)
{
    return host.call("f", ka::ref(values), ka::ref(text, 9), ka::Decimal("1.5")) +
           ka::test::call("f", ka::ref(values), ka::ref(text, 9), ka::Decimal("1.5"));
}

} // namespace

KA_MODULE(KA_FN(number, "exact"))
