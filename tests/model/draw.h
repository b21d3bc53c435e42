// SPDX-License-Identifier: MIT
//
// Random operands that hit the hard places: carries through 99s, ties at 50, cancellation, shifts around the guard
// digit, both ends of the exponents, every digit count, leading and trailing zero digits, zeros of either sign byte,
// nulls. Digit bytes past the digits in use always hold garbage.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <random>
#include <string>
#include <utility>

#include "ka/decimal.h"
#include "model/rounds.h"

namespace model {

// Kinds of drawn records besides normal values.
struct Allow {
    bool null = true;
    bool zero = true;
    bool trailing_zeros = true;
    bool leading_zeros = true;
};
inline constexpr Allow anything = {};
inline constexpr Allow normal_only = {.null = false, .zero = false, .trailing_zeros = false, .leading_zeros = false};
inline constexpr Allow normal_or_zero = {
    .null = false, .zero = true, .trailing_zeros = false, .leading_zeros = false};

class Draw {
public:
    // Takes the seed from KA_SEED, else a fresh one; prints it with the name of the running test.
    Draw();
    explicit Draw(uint64_t seed);

    // The seed that was taken last.
    static uint64_t last_seed();

    uint64_t bits() { return engine_(); }
    int below(int n) { return static_cast<int>(engine_() % static_cast<uint64_t>(n)); }
    int between(int low, int high) { return low + below(high - low + 1); }
    bool one_in(int n) { return below(n) == 0; }
    int pick(std::initializer_list<int> values);

    int digit();
    int exponent();
    t_DECIMAL record(const Allow &allow = anything);
    std::pair<t_DECIMAL, t_DECIMAL> pair(const Allow &allow = anything);
    double finite_double();

private:
    t_DECIMAL related(const t_DECIMAL &a);
    void fill(t_DECIMAL &x, const Allow &allow);

    std::mt19937_64 engine_;
};

} // namespace model
