// SPDX-License-Identifier: MIT
//
// The REALs of two doubles at once, beside deccvdbl, which has its own tests against the long way.
#include <bit>
#include <cstring>
#include <gtest/gtest.h>

#include "ka/decimal.h"
#include "model/draw.h"
#include "model/notation.h"
#include "wire/sure_pair.h"

using namespace model;

namespace {

struct Pair {
    double values[2];
};

std::string show(const Pair &pair)
{
    return model::show(pair.values[0]) + " and " + model::show(pair.values[1]);
}

// At any address, each record with bytes in front of it and behind it.
void compare(const Pair &pair, bool *stored)
{
    constexpr size_t place = 5, distance = sizeof(t_DECIMAL) + 6;
    char bytes[2 * distance + place];
    memset(bytes, '#', sizeof bytes);
    char expected[sizeof bytes];
    memcpy(expected, bytes, sizeof bytes);
    *stored = wire::store_sure_pair(pair.values, bytes + place, bytes + place + distance);
    for (size_t i = 0; *stored && i < 2; i++) {
        t_DECIMAL real;
        ASSERT_EQ(deccvdbl(pair.values[i], &real), DEC_OK);
        memcpy(expected + place + i * distance, &real, sizeof real);
    }
    ASSERT_EQ(memcmp(bytes, expected, sizeof bytes), 0) << show(pair);
}

double sign_drawn(Draw &draw, double magnitude)
{
    return draw.one_in(2) ? magnitude : -magnitude;
}

double steps_from(double value, int steps)
{
    return std::bit_cast<double>(std::bit_cast<int64_t>(value) + steps);
}

// 1 to 17 decimals, 1e-10 to 1e17; at times with a 5 for the sixteenth, and steps from there.
double decimals(Draw &draw)
{
    const int count = draw.between(1, 17);
    std::string text = std::to_string(1 + draw.bits() % 9);
    while (static_cast<int>(text.size()) < count)
        text += static_cast<char>('0' + draw.below(draw.one_in(4) ? 1 : 10));
    if (draw.one_in(3)) text = text.substr(0, 15) + "5";
    const int point = draw.between(-9, 17);
    const double value =
        strtod((text + "e" + std::to_string(point - static_cast<int>(text.size()))).c_str(), nullptr);
    return draw.one_in(2) ? value : steps_from(value, draw.between(-40, 40));
}

double any_bits(Draw &draw)
{
    const uint64_t everyday = (draw.bits() >> 12) | static_cast<uint64_t>(draw.between(990, 1080)) << 52;
    return std::bit_cast<double>(draw.one_in(10) ? draw.bits() : everyday);
}

} // namespace

TEST(SurePair, is_what_one_by_one_gives)
{
    Draw draw;
    for (Rounds rounds(300000); rounds.more();) {
        const bool bits = draw.one_in(2);
        Pair pair;
        for (double &value : pair.values)
            value = sign_drawn(draw, bits ? any_bits(draw) : decimals(draw));
        bool stored;
        compare(pair, &stored);
        if (HasFatalFailure()) FAIL() << "in round " << rounds.number();
    }
}

TEST(SurePair, is_what_one_by_one_gives_at_every_power_of_ten)
{
    for (int power = -10; power <= 17; power++) {
        const double middle = strtod(("1e" + std::to_string(power)).c_str(), nullptr);
        for (int steps = -300; steps <= 300; steps++) {
            bool stored;
            compare({{steps_from(middle, steps), -steps_from(middle, -steps)}}, &stored);
            if (HasFatalFailure()) return;
        }
    }
}

// Sixteen decimals are taken apart by quotients: tried where those are nearest to the next one.
TEST(SurePair, is_what_one_by_one_gives_where_a_digit_is_about_to_change)
{
    for (int place = 0; place <= 15; place++) {
        double unit = 1;
        for (int i = 0; i < place; i++)
            unit *= 10;
        for (int multiple = 1; multiple < 100; multiple++)
            for (int away = -3; away <= 3; away++)
                for (const double scale : {1.0, 10.0, 1e5}) {
                    bool stored;
                    compare({{(multiple * unit + away) / scale, (multiple * unit + away * 7) / scale}}, &stored);
                    if (HasFatalFailure()) return;
                }
    }
}

// Eight decimals that end with nines and zeros, after seven others.
TEST(SurePair, is_what_one_by_one_gives_on_either_side_of_eight_decimals)
{
    Draw draw;
    for (Rounds rounds(20000); rounds.more();) {
        const auto eights = static_cast<double>(1 + draw.bits() % 9999999) * 1e8;
        const Pair whole = {{eights - draw.between(0, 3), eights + draw.between(0, 3)}};
        for (const double scale : {1.0, 10.0, 1e8, 1e15}) {
            bool stored;
            compare({{whole.values[0] / scale, whole.values[1] / scale}}, &stored);
            if (HasFatalFailure()) FAIL() << "in round " << rounds.number();
        }
    }
}

// Else the tests above would compare nothing. Elsewhere than on x86 there are no pairs.
TEST(SurePair, is_what_nearly_all_everyday_numbers_are)
{
#ifdef __SSE2__
    Draw draw;
    for (int i = 0; i < 10000; i++) {
        Pair pair;
        for (double &value : pair.values)
            value = sign_drawn(draw, static_cast<double>(1 + draw.bits() % 10000000000000) / 100);
        bool stored;
        compare(pair, &stored);
        ASSERT_TRUE(stored) << show(pair);
    }
#endif
}

TEST(SurePair, is_not_stored_where_one_of_the_two_is_not_sure)
{
    const double infinite = __builtin_inf();
    for (const double unsure : {0.0, -0.0, infinite, -infinite, __builtin_nan(""), 1.000030517578125, 9.9e-9, 1e15,
                                1e300, 1e-300, 5e-324, 999999999999999.6}) {
        bool stored;
        compare({{unsure, 1.5}}, &stored);
        EXPECT_FALSE(stored) << model::show(unsure);
        compare({{1.5, unsure}}, &stored);
        EXPECT_FALSE(stored) << model::show(unsure);
    }
}
