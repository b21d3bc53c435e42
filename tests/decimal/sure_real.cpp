// SPDX-License-Identifier: MIT
//
// Doubles into records by one product, beside the long way: ecvt in 32-bit programs, the same in integers in 64-bit
// ones. The long way is written here as plainly as it can be.
#include <algorithm>
#include <bit>
#include <cfenv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>

#include "dec_double.h"
#include "ka/real.h"
#include "model/doubles.h"
#include "model/floating.h"
#include "model/notation.h"
#include "wire/sure_real.h"

using namespace model;

static Decimals long_way(double value, int count)
{
#if UINTPTR_MAX > UINT32_MAX
    const t_DECIMALS found = dec_find_decimals(std::fabs(value), count);
    std::string text = std::to_string(found.digits);
    text.insert(0, static_cast<size_t>(count) - text.size(), '0'); // zero
    return {text, found.point};
#else
    Decimals found;
    int sign = 0;
    found.text = ecvt(value, count, &found.point, &sign);
    found.text.resize(static_cast<size_t>(count));
    return found;
#endif
}

static int plain_from_double(double value, int count, t_DECIMAL *result)
{
    *result = {};
    if (!std::isfinite(value)) {
        result->dec_pos = DEC_NULL;
        return DEC_OVERFLOW;
    }
    const Decimals found = long_way(value, count);
    result->dec_pos = std::signbit(value) ? DEC_NEGATIVE : DEC_POSITIVE;
    for (int i = 0; i < count; i++) {
        const int place = i + (found.point % 2 != 0 ? 1 : 0);
        const int decimal = found.text[static_cast<size_t>(i)] - '0';
        uint8_t &digit = result->dec_dgts[place / 2];
        digit = static_cast<uint8_t>(digit + (place % 2 == 0 ? 10 * decimal : decimal));
        if (digit != 0) result->dec_ndgts = static_cast<int8_t>(place / 2 + 1);
    }
    const int exponent = (found.point > 0 ? found.point + 1 : found.point) / 2;
    result->dec_exp = static_cast<int16_t>(std::min(std::max(exponent, int{DEC_EXP_MIN}), int{DEC_EXP_MAX}));
    return exponent > DEC_EXP_MAX ? DEC_OVERFLOW : exponent < DEC_EXP_MIN ? DEC_UNDERFLOW : DEC_OK;
}

static int plain_cv_dbl(double value, t_DECIMAL *result)
{
    const int code = plain_from_double(value, 15, result);
    if (code == DEC_OK) return REAL_OK;
    const bool zero = code == DEC_UNDERFLOW || std::isnan(value) || (std::isinf(value) && value < 0);
    *result = zero ? c_dec_zero : c_dec_huge;
    if (!zero && value < 0) result->dec_pos = DEC_NEGATIVE;
    return REAL_RANGE;
}

static bool equal(int code, const t_DECIMAL &x, int expected_code, const t_DECIMAL &expected)
{
    // Of a null the digits stay as they were.
    return code == expected_code && memcmp(&x, &expected, expected.dec_pos == DEC_NULL ? 4 : sizeof x) == 0;
}

static void compare_with_the_long_way(double value)
{
    t_DECIMAL got = {};
    t_DECIMAL expected;
    int code = deccvdbl(value, &got);
    int expected_code = plain_from_double(value, 15, &expected);
    ASSERT_TRUE(equal(code, got, expected_code, expected))
        << "deccvdbl of " << show(value) << ": " << code << " " << show(got) << ", expected " << expected_code << " "
        << show(expected);
    code = m_cv_dbl(value, &got);
    expected_code = plain_cv_dbl(value, &expected);
    ASSERT_TRUE(equal(code, got, expected_code, expected))
        << "m_cv_dbl of " << show(value) << ": " << code << " " << show(got) << ", expected " << expected_code << " "
        << show(expected);
    if (std::fabs(value) > 3e38) return;
    const float narrow = static_cast<float>(value);
    code = deccvflt(narrow, &got);
    expected_code = plain_from_double(static_cast<double>(narrow), 6, &expected);
    ASSERT_TRUE(equal(code, got, expected_code, expected))
        << "deccvflt of " << show(static_cast<double>(narrow)) << ": " << code << " " << show(got) << ", expected "
        << expected_code << " " << show(expected);
}

static double steps_from(double value, int steps)
{
    return std::bit_cast<double>(std::bit_cast<int64_t>(value) + steps);
}

// 1 to 17 decimals, in the range of records; at times with a 5 for the sixteenth, or the seventh, and steps from
// there.
static double decimals(Draw &draw)
{
    const int count = draw.between(1, 17);
    std::string text = std::to_string(1 + draw.bits() % 9);
    while (static_cast<int>(text.size()) < count)
        text += static_cast<char>('0' + draw.below(10));
    if (draw.one_in(3)) text = text.substr(0, 15) + "5";
    if (draw.one_in(6)) text = text.substr(0, 6) + "5";
    const double value = strtod((text + "e" + std::to_string(draw.between(-146, 125))).c_str(), nullptr);
    return draw.one_in(2) ? value : steps_from(value, draw.between(-40, 40));
}

static double anything_finite(Draw &draw)
{
    const double magnitude = draw.one_in(2) ? decimals(draw) : double_kinds[draw.below(double_kind_count)].draw(draw);
    return draw.one_in(2) ? magnitude : -magnitude;
}

TEST(SureReal, is_what_the_long_way_gives)
{
    Draw draw;
    for (Rounds rounds(300000); rounds.more();) {
        compare_with_the_long_way(anything_finite(draw));
        if (HasFatalFailure()) FAIL() << "in round " << rounds.number();
    }
}

TEST(SureReal, is_what_the_long_way_gives_for_any_bits)
{
    Draw draw;
    for (Rounds rounds(100000); rounds.more();) {
        compare_with_the_long_way(std::bit_cast<double>(draw.bits()));
        if (HasFatalFailure()) FAIL() << "in round " << rounds.number();
    }
    constexpr double infinite = std::numeric_limits<double>::infinity();
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    for (const double value : {0.0, -0.0, infinite, -infinite, nan, -nan, 5e-324, 1.7976931348623157e308})
        compare_with_the_long_way(value);
}

TEST(SureReal, is_what_the_long_way_gives_at_every_power_of_ten)
{
    for (int power = -330; power <= 308; power++) {
        const double middle = strtod(("1e" + std::to_string(power)).c_str(), nullptr);
        for (int steps = -300; steps <= 300; steps++) {
            if (middle == 0 && steps < 0) continue;
            compare_with_the_long_way(steps_from(middle, steps));
            if (HasFatalFailure()) return;
        }
    }
}

TEST(SureReal, is_what_the_long_way_gives_in_every_rounding_mode)
{
    Draw draw;
    for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        for (int i = 0; i < 20000 && !HasFatalFailure(); i++) {
            const double value = anything_finite(draw);
            fesetround(mode);
            compare_with_the_long_way(value);
            fesetround(FE_TONEAREST);
        }
    }
}

// Else the tests above would compare the long way with itself.
TEST(SureReal, is_what_nearly_all_doubles_have)
{
    Draw draw;
    int sure = 0;
    int amounts = 0;
    constexpr int drawn = 20000;
    for (int i = 0; i < drawn; i++) {
        t_DECIMAL real;
        const uint64_t bits = (draw.bits() >> 12) | static_cast<uint64_t>(draw.between(600, 1430)) << 52;
        if (wire::store_sure_real(bits, 15, &real)) sure++;
        const double amount = static_cast<double>(draw.bits() % 100000000000000) / 100;
        if (amount == 0 || wire::store_sure_real(std::bit_cast<uint64_t>(amount), 15, &real)) amounts++;
    }
    EXPECT_GT(sure, drawn / 100 * 88);
    EXPECT_EQ(amounts, drawn);
}

TEST(SureReal, is_not_what_a_tie_has)
{
    t_DECIMAL real;
    for (const double tie : {1.000030517578125, 1.000091552734375, 100003.0517578125, 3.0000000000000049})
        EXPECT_FALSE(wire::store_sure_real(std::bit_cast<uint64_t>(tie), 15, &real)) << show(tie);
    for (const double tie : {1.000005, 1234565.0, 0.5000005, 1.000015})
        EXPECT_FALSE(wire::store_sure_real(std::bit_cast<uint64_t>(tie), 6, &real)) << show(tie);
}

TEST(Tens, are_the_first_64_bits_of_the_powers)
{
    for (int n = wire::TEN_LEAST; n <= wire::TEN_MOST; n++) {
        const Int five = pow(Int(5), static_cast<unsigned>(std::abs(n)));
        const Int bits = n < 0 ? Int((Int(1) << 600) / five) : Int(five << 64);
        EXPECT_EQ(Int(wire::ten_bits(n)), Int(bits >> (static_cast<int>(msb(bits)) - 63))) << n;
        const int exponent =
            n < 0 ? -static_cast<int>(msb(five)) - 1 + n : static_cast<int>(msb(five)) + n; // 5^n is no power of two
        EXPECT_EQ(wire::ten_exponent(n), n == 0 ? 0 : exponent) << n;
    }
}

TEST(Tens, below_every_power_of_two_are_found)
{
    for (int e = -440; e <= 430; e++) {
        const int n = wire::ten_below(e);
        EXPECT_TRUE(wire::ten_exponent(n) <= e && (n == 0 || wire::ten_exponent(n) <= e)) << e;
        EXPECT_GE(wire::ten_exponent(n + 1), e) << e;
    }
}
