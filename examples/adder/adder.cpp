// SPDX-License-Identifier: MIT
// The smallest module: one function of two arguments and a result. examples/tables is the same, with tables by hand.
#include <ka/module.hpp>
// clang-format off
static std::int32_t add(std::int32_t a, std::int32_t b) { return a + b; }
KA_MODULE(KA_FN(add, "a", "b", ka::result("sum")))
