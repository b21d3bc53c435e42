// SPDX-License-Identifier: MIT
//
// Drawing of operands.
#include "model/draw.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

namespace model {

static uint64_t seed_taken; // for the progress of the long mode

static uint64_t chosen_seed()
{
    const char *given = getenv("KA_SEED");
    const uint64_t seed = given ? strtoull(given, nullptr, 0) : std::random_device{}();
    const testing::TestInfo *test = testing::UnitTest::GetInstance()->current_test_info();
    printf("%s.%s: KA_SEED=%llu\n", test->test_suite_name(), test->name(), static_cast<unsigned long long>(seed));
    seed_taken = seed;
    return seed;
}

Draw::Draw() : engine_(chosen_seed()) {}
Draw::Draw(uint64_t seed) : engine_(seed) {}

uint64_t Draw::last_seed()
{
    return seed_taken;
}

int Draw::pick(std::initializer_list<int> values)
{
    return values.begin()[below(static_cast<int>(values.size()))];
}

int Draw::digit()
{
    return one_in(2) ? below(100) : pick({0, 0, 1, 5, 9, 10, 49, 50, 50, 51, 90, 95, 98, 99, 99, 99});
}

int Draw::exponent()
{
    switch (below(4)) {
    case 0:
        return between(DEC_EXP_MIN, DEC_EXP_MAX);
    case 1:
        return one_in(2) ? between(DEC_EXP_MAX - 3, DEC_EXP_MAX) : between(DEC_EXP_MIN, DEC_EXP_MIN + 3);
    default:
        return between(-9, 9);
    }
}

// Digit bytes, all eight of them, and as many counted as drawn; made normal where nothing else is allowed.
void Draw::fill(t_DECIMAL &x, const Allow &allow)
{
    for (uint8_t &byte : x.dec_dgts)
        byte = static_cast<uint8_t>(digit());
    if (one_in(4)) {
        const int from = below(DEC_DIGITS);
        const int value = pick({99, 99, 0, 49, 50});
        std::fill(x.dec_dgts + from, x.dec_dgts + between(from, DEC_DIGITS), static_cast<uint8_t>(value));
    }
    x.dec_ndgts = static_cast<int8_t>(one_in(2) ? between(6, DEC_DIGITS) : between(1, DEC_DIGITS));
    uint8_t &first = x.dec_dgts[0];
    uint8_t &last = x.dec_dgts[x.dec_ndgts - 1];
    if (first == 0 && !(allow.leading_zeros && one_in(4))) first = static_cast<uint8_t>(between(1, 99));
    if (last == 0 && !(allow.trailing_zeros && one_in(2))) last = static_cast<uint8_t>(between(1, 99));
    for (int i = x.dec_ndgts; i < DEC_DIGITS; i++)
        x.dec_dgts[i] = static_cast<uint8_t>(bits());
}

t_DECIMAL Draw::record(const Allow &allow)
{
    t_DECIMAL x = {};
    x.dec_exp = static_cast<int16_t>(exponent());
    x.dec_pos = one_in(2) ? DEC_POSITIVE : DEC_NEGATIVE;
    fill(x, allow);
    if (allow.zero && one_in(25)) x.dec_ndgts = 0;
    if (allow.null && one_in(40)) x.dec_pos = DEC_NULL;
    return x;
}

// A second operand that shares digits with the first, or completes them to 100s, or is a few digits away.
t_DECIMAL Draw::related(const t_DECIMAL &a)
{
    t_DECIMAL b = a;
    if (b.dec_pos != DEC_NULL && one_in(2)) b.dec_pos ^= 1;
    for (int i = 0; i < b.dec_ndgts; i++) {
        if (one_in(6)) b.dec_dgts[i] = static_cast<uint8_t>(digit());
    }
    if (b.dec_ndgts > 0 && one_in(4)) {
        for (int i = 0; i < b.dec_ndgts; i++)
            b.dec_dgts[i] = static_cast<uint8_t>(99 - b.dec_dgts[i]);
        b.dec_dgts[b.dec_ndgts - 1] = static_cast<uint8_t>(std::min(b.dec_dgts[b.dec_ndgts - 1] + 1, 99));
    }
    return b;
}

std::pair<t_DECIMAL, t_DECIMAL> Draw::pair(const Allow &allow)
{
    const t_DECIMAL a = record(allow);
    t_DECIMAL b = one_in(4) ? related(a) : record(allow);
    const bool normal = !allow.leading_zeros || !allow.trailing_zeros;
    if (normal && b.dec_ndgts > 0) {
        b.dec_dgts[0] = std::max<uint8_t>(b.dec_dgts[0], 1);
        uint8_t &last = b.dec_dgts[b.dec_ndgts - 1];
        last = std::max<uint8_t>(last, 1);
    }
    if (!one_in(5)) {
        const int distance = one_in(4) ? between(-1, 1) : between(-10, 10);
        b.dec_exp = static_cast<int16_t>(std::clamp<int>(a.dec_exp + distance, DEC_EXP_MIN, DEC_EXP_MAX));
    }
    return one_in(2) ? std::pair(a, b) : std::pair(b, a);
}

double Draw::finite_double()
{
    const uint64_t fraction = one_in(3) ? 0 : bits() >> 12;
    const int exponent = one_in(2) ? between(1023 - 60, 1023 + 60) : between(0, 2046);
    const uint64_t word = (bits() << 63) | (static_cast<uint64_t>(exponent) << 52) | fraction;
    double value;
    memcpy(&value, &word, sizeof value);
    return value;
}

} // namespace model
