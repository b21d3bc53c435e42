// SPDX-License-Identifier: MIT
//
// Packed storage, integers and floating point against the model.
#include <gtest/gtest.h>

#include "model/binary.h"
#include "model/draw.h"
#include "model/guarded.h"
#include "model/notation.h"
#include "model/rounds.h"

using namespace model;

TEST(Stdecimal, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        t_DECIMAL x = draw.record();
        if (draw.one_in(10)) x.dec_exp = static_cast<int16_t>(draw.bits());
        const int length = draw.between(2, 12);
        Guarded field(length);
        ASSERT_EQ(stdecimal(&x, field.data(), length), DEC_OK);
        ASSERT_TRUE(field.intact() && field.bytes() == packed(x, length))
            << show(x) << " in " << length << "\n  expected: " << show(packed(x, length))
            << "\n  got:      " << show(field.bytes()) << "\n  in round " << rounds.number();
    }
}

TEST(Lddecimal, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        std::vector<uint8_t> field(static_cast<size_t>(draw.between(1, 12)));
        for (uint8_t &byte : field)
            byte = static_cast<uint8_t>(draw.digit());
        if (!draw.one_in(10)) field[0] = static_cast<uint8_t>(draw.bits());
        t_DECIMAL result = draw.record();
        ASSERT_EQ(lddecimal(field.data(), static_cast<int>(field.size()), &result), DEC_OK);
        ASSERT_TRUE(same(result, unpacked(field)))
            << show(field) << "\n  expected: " << show(unpacked(field)) << "\n  got:      " << show(result);
    }
}

TEST(Deccvint32, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        const int32_t value = static_cast<int32_t>(draw.bits()) >> draw.below(32);
        t_DECIMAL result = draw.record();
        ASSERT_EQ(deccvint32(value, &result), DEC_OK);
        const t_DECIMAL expected = value == INT32_MIN ? null_record() : model::from_integer(value);
        ASSERT_TRUE(same(result, expected))
            << value << "\n  expected: " << show(expected) << "\n  got:      " << show(result);
        int32_t back = ~value;
        ASSERT_EQ(dectoint32(&result, &back), DEC_OK);
        ASSERT_EQ(back, value);
    }
}

template <typename Integer, auto operation>
static void to_integer_agrees()
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        t_DECIMAL x = draw.record();
        if (!draw.one_in(8)) x.dec_exp = static_cast<int16_t>(draw.between(-1, 6));
        if (x.dec_pos != DEC_NULL && draw.one_in(4)) {
            x = draw.one_in(2) ? c_int32_max : c_int32_min;
            x.dec_dgts[draw.below(DEC_DIGITS)] = static_cast<uint8_t>(draw.digit());
            x.dec_ndgts = static_cast<int8_t>(draw.between(5, DEC_DIGITS));
        }
        const std::optional<int32_t> whole = is_null(x) ? std::numeric_limits<Integer>::min() : model::to_int32(x);
        const bool fits =
            whole && *whole >= std::numeric_limits<Integer>::min() && *whole <= std::numeric_limits<Integer>::max();
        Integer result = 4711;
        const int code = operation(&x, &result);
        ASSERT_EQ(code, fits ? DEC_OK : DEC_OVERFLOW) << show(x) << " in round " << rounds.number();
        ASSERT_EQ(result, fits ? static_cast<Integer>(*whole) : 4711) << show(x) << " in round " << rounds.number();
    }
}

TEST(Dectoint32, agrees_with_the_model)
{
    to_integer_agrees<int32_t, dectoint32>();
}
TEST(Dectoint16, agrees_with_the_model)
{
    to_integer_agrees<int16_t, dectoint16>();
}

TEST(Deccvdbl, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(60000); rounds.more();) {
        const double value = draw.finite_double();
        t_DECIMAL result = draw.record();
        const int code = deccvdbl(value, &result);
        const Outcome expected = from_double(value, 15);
        ASSERT_TRUE(code == expected.code && same(result, expected.record))
            << show(value) << "\n  expected: " << expected.code << " " << show(expected.record)
            << "\n  got:      " << code << " " << show(result) << "\n  in round " << rounds.number();
    }
}

TEST(Deccvflt, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(60000); rounds.more();) {
        const uint32_t word = static_cast<uint32_t>(draw.bits()) & ~(1U << 23);
        float value;
        memcpy(&value, &word, sizeof value);
        t_DECIMAL result = draw.record();
        const int code = deccvflt(value, &result);
        const Outcome expected = from_double(value, 6);
        ASSERT_TRUE(code == expected.code && same(result, expected.record))
            << show(static_cast<double>(value)) << "\n  expected: " << expected.code << " " << show(expected.record)
            << "\n  got:      " << code << " " << show(result) << "\n  in round " << rounds.number();
    }
}

TEST(Dectodbl, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(30000); rounds.more();) {
        const t_DECIMAL x = draw.record({.null = false});
        double wide = 0;
        float narrow = 0;
        ASSERT_EQ(dectodbl(&x, &wide), DEC_OK);
        ASSERT_EQ(dectoflt(&x, &narrow), DEC_OK);
        ASSERT_EQ(show(wide), show(to_double(x, DEC_DIGITS))) << show(x) << " in round " << rounds.number();
        ASSERT_EQ(show(static_cast<double>(narrow)), show(static_cast<double>(to_float(x))))
            << show(x) << " in round " << rounds.number();
    }
}
