// SPDX-License-Identifier: MIT
//
// The quick look at a record beside the one that names its fault.
#include <cstring>
#include <gtest/gtest.h>

#include "model/draw.h"
#include "wire/real_fault.h"

namespace {

void compare(const unsigned char (&real)[wire::REAL_SIZE])
{
    int32_t found;
    const bool sound = wire::real_fault(real, &found) == REAL_SOUND;
    const wire::t_REAL_BITS bits = wire::load_real_bits(real);
    unsigned char again[wire::REAL_SIZE];
    wire::store_real_bits(bits, again);
    ASSERT_EQ(std::memcmp(again, real, sizeof again), 0);
    if (wire::is_sound(bits) == sound) return;
    std::string shown;
    for (const unsigned byte : real)
        shown += std::to_string(byte) + " ";
    FAIL() << shown;
}

} // namespace

TEST(RealFault, is_seen_at_once_in_every_header)
{
    unsigned char real[wire::REAL_SIZE] = {0, 0, 1, 3, 12, 34, 56, 0, 0, 0, 0, 0};
    for (int exponent = 0; exponent < 0x10000; exponent++)
        for (const int count : {0, 3, 8, 9}) {
            real[0] = static_cast<unsigned char>(exponent);
            real[1] = static_cast<unsigned char>(exponent >> 8);
            real[wire::REAL_COUNT_AT] = static_cast<unsigned char>(count);
            ASSERT_NO_FATAL_FAILURE(compare(real));
        }
    for (int rest = 0; rest < 0x10000; rest++)
        for (const int exponent : {0, 0xFFC0, 63}) {
            real[0] = static_cast<unsigned char>(exponent);
            real[1] = static_cast<unsigned char>(exponent >> 8);
            real[wire::REAL_SIGN_AT] = static_cast<unsigned char>(rest);
            real[wire::REAL_COUNT_AT] = static_cast<unsigned char>(rest >> 8);
            ASSERT_NO_FATAL_FAILURE(compare(real));
        }
}

TEST(RealFault, is_seen_at_once_in_every_digit)
{
    for (unsigned char count = 0; count <= wire::REAL_DIGITS_MAX; count++)
        for (int place = 0; place < wire::REAL_DIGITS_MAX; place++)
            for (int digit = 0; digit < 256; digit++)
                for (const int others : {1, 99, 100, 227, 228, 255}) {
                    unsigned char real[wire::REAL_SIZE] = {1, 0, 1, count};
                    std::memset(real + wire::REAL_DIGITS_AT, others, wire::REAL_DIGITS_MAX);
                    real[wire::REAL_DIGITS_AT + place] = static_cast<unsigned char>(digit);
                    ASSERT_NO_FATAL_FAILURE(compare(real));
                }
}

TEST(RealFault, is_seen_at_once_in_any_bytes)
{
    model::Draw draw;
    for (model::Rounds rounds(300000); rounds.more();) {
        unsigned char real[wire::REAL_SIZE] = {0, 0, 1};
        real[wire::REAL_COUNT_AT] = static_cast<unsigned char>(draw.below(10));
        for (int i = 0; i < wire::REAL_DIGITS_MAX; i++)
            real[wire::REAL_DIGITS_AT + i] = static_cast<unsigned char>(draw.below(draw.one_in(3) ? 102 : 100));
        if (draw.one_in(3)) real[draw.below(wire::REAL_SIZE)] = static_cast<unsigned char>(draw.bits());
        ASSERT_NO_FATAL_FAILURE(compare(real)) << "in round " << rounds.number();
    }
}
