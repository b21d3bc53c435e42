// SPDX-License-Identifier: MIT
//
// REALs into doubles and text in few steps, beside the long way: through the decimals that dececvt gives, one by one,
// and the C library's strtod.
#include <cfenv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

#include "ka/real.h"
#include "model/draw.h"
#include "model/guarded.h"
#include "model/notation.h"

using namespace model;

// dececvt; a rounding that leaves the range gives 1 or 0, a decimal further up.
static std::string plain_decimals(const t_DECIMAL &x, int ndigit, int *point, int *sign)
{
    std::string decimals = dececvt(&x, ndigit, point, sign);
    if (!decimals.empty()) return decimals;
    ++*point;
    return x.dec_exp >= DEC_EXP_MAX ? "1" : "0";
}

static double plain_to_double(const t_DECIMAL &x)
{
    int point = 0;
    int sign = 0;
    const std::string decimals = plain_decimals(x, 14, &point, &sign);
    if (decimals[0] == '0') return 0;
    char text[40];
    snprintf(text, sizeof text, "%s%se%d", sign != 0 ? "-" : "", decimals.c_str(),
             point - static_cast<int>(decimals.size()));
    return strtod(text, nullptr);
}

static std::string plain_general(const t_DECIMAL &x, int ndigit)
{
    if (ndigit <= 0) return "";
    int point = 0;
    int sign = 0;
    std::string decimals = plain_decimals(x, ndigit, &point, &sign);
    if (decimals[0] == '0') return "0";
    point = std::min(std::max(point, -998), 999);
    decimals.erase(decimals.find_last_not_of('0') + 1);
    const int length = static_cast<int>(decimals.size());
    if (point >= 0 ? ndigit < point : ndigit < length - point) {
        char exponent[16];
        snprintf(exponent, sizeof exponent, "E%+03d", point - 1);
        if (length > 1) decimals.insert(1, ".");
        decimals += exponent;
    } else if (point <= 0) {
        decimals.insert(0, "0." + std::string(static_cast<size_t>(-point), '0'));
    } else if (point >= length) {
        decimals.append(static_cast<size_t>(point - length), '0');
    } else {
        decimals.insert(static_cast<size_t>(point), ".");
    }
    return (sign != 0 ? "-" : "") + decimals;
}

// Normal form, any exponent: often one that is in everyday use. Or any bytes that are not null.
static t_DECIMAL drawn(Draw &draw)
{
    t_DECIMAL x = draw.record({.null = false});
    if (draw.one_in(2)) {
        x.dec_exp = static_cast<int16_t>(draw.between(-6, 21));
        x.dec_ndgts = static_cast<int8_t>(draw.between(1, DEC_DIGITS));
        for (uint8_t &digit : x.dec_dgts)
            digit = static_cast<uint8_t>(draw.below(draw.one_in(4) ? 10 : 100));
    }
    if (draw.one_in(20)) {
        const uint64_t bits = draw.bits();
        memcpy(&x.dec_dgts, &bits, sizeof bits);
        x.dec_pos = static_cast<uint8_t>(draw.below(DEC_NULL));
        x.dec_ndgts = static_cast<int8_t>(draw.below(256));
        if (draw.one_in(2)) x.dec_exp = static_cast<int16_t>(draw.bits());
    }
    return x;
}

// 14 decimals between two doubles, as near to both: an odd number of 54 bits that is divided by a power of ten.
static t_DECIMAL tie(Draw &draw)
{
    const int power = draw.between(4, 22);
    uint64_t five = 1;
    for (int i = 0; i < power; i++)
        five *= 5;
    const uint64_t least = (uint64_t{1} << 53) / five;
    uint64_t decimals = (least + 1 + draw.bits() % (least + 1)) | 1;
    const int digits = static_cast<int>(std::to_string(decimals).size());
    for (int i = digits; i < 16; i++)
        decimals *= 10;
    t_DECIMAL x = {};
    int point = digits + power;
    x.dec_pos = static_cast<uint8_t>(draw.below(2));
    if (point % 2 != 0) {
        decimals /= 10;
        point++;
    }
    x.dec_exp = static_cast<int16_t>(point / 2);
    for (int i = DEC_DIGITS - 1; i >= 0; i--, decimals /= 100) {
        x.dec_dgts[i] = static_cast<uint8_t>(decimals % 100);
        if (x.dec_dgts[i] != 0 && x.dec_ndgts == 0) x.dec_ndgts = static_cast<int8_t>(i + 1);
    }
    return x;
}

static void compare_double(const t_DECIMAL &x)
{
    double got = NAN;
    ASSERT_EQ(m_to_dbl(&x, &got), REAL_OK);
    const double expected = plain_to_double(x);
    ASSERT_EQ(memcmp(&got, &expected, sizeof got), 0)
        << show(x) << ": " << show(got) << ", expected " << show(expected);
}

TEST(MToDbl, is_what_the_long_way_gives)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        compare_double(draw.one_in(5) ? tie(draw) : drawn(draw));
        if (HasFatalFailure()) FAIL() << "in round " << rounds.number();
    }
}

TEST(MToDbl, is_what_the_long_way_gives_in_every_rounding_mode)
{
    Draw draw;
    for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        for (int i = 0; i < 20000 && !HasFatalFailure(); i++) {
            const t_DECIMAL x = draw.one_in(5) ? tie(draw) : drawn(draw);
            fesetround(mode);
            compare_double(x);
            fesetround(FE_TONEAREST);
        }
    }
}

// The text, and not a character past its end: the buffer of a module may be just large enough for its numbers. The
// library's buffer has the decimals.
static void compare_general(const t_DECIMAL &x, int ndigit)
{
    int point = 0;
    int sign = 0;
    const char *kept = dececvt(&x, 1, &point, &sign);
    const std::string expected = plain_general(x, ndigit);
    std::string decimals = ndigit > 0 ? plain_decimals(x, ndigit, &point, &sign) : kept;
    if (ndigit > 0) decimals.erase(std::max(decimals.find_last_not_of('0') + 1, size_t{1}));
    char buffer[200];
    memset(buffer, '#', sizeof buffer);
    ASSERT_STREQ(m_gcvt(&x, ndigit, buffer), expected.c_str()) << show(x) << " to " << ndigit;
    for (size_t i = expected.size() + 1; i < sizeof buffer; i++)
        ASSERT_EQ(buffer[i], '#') << show(x) << " to " << ndigit;
    ASSERT_EQ(kept, decimals) << show(x) << " to " << ndigit;
}

TEST(MGcvt, is_what_the_long_way_gives)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        const t_DECIMAL x = drawn(draw);
        compare_general(x, draw.one_in(2) ? 14 : draw.one_in(10) ? draw.between(-1, 150) : draw.between(1, 17));
        if (HasFatalFailure()) FAIL() << "in round " << rounds.number();
    }
}

// Every count of decimals with the point everywhere, to every count of them: each form in each length.
TEST(MGcvt, every_form_is_what_the_long_way_gives)
{
    for (const char *decimals : {"1234567891234567", "9999999999999999", "4999999999999995", "5050505050505050"})
        for (size_t count = 1; count <= 16; count++)
            for (int point = -20; point <= 20; point++) {
                t_DECIMAL x;
                const std::string text = "-0." + std::string(decimals).substr(0, count) + "e" + std::to_string(point);
                ASSERT_EQ(m_cv_asc(text.c_str(), static_cast<int>(text.size()), &x), REAL_OK) << text;
                for (int ndigit = 1; ndigit <= 18 && !HasFatalFailure(); ndigit++) {
                    x.dec_pos ^= 1;
                    compare_general(x, ndigit);
                }
            }
}
