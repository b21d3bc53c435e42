// SPDX-License-Identifier: MIT
//
// All C++ headers in one file, those of modules and those of callers: no name of one is in the way of another. It is
// only compiled: nobody is caller and module at once.
#include "ka/caller.hpp"
#include "ka/module.hpp"
#include "ka/real.hpp"

static_assert(!std::is_same_v<ka::Decimal, ka::decimal>, "one is text, the other a REAL");

namespace {

std::string number(const ka::decimal &exact)
{
    return ka::Decimal(exact.record()).text;
}

} // namespace

KA_MODULE(KA_FN(number, "exact"))
