// SPDX-License-Identifier: MIT
//
// The REAL operations against the model.
#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>

#include "ka/real.h"
#include "model/draw.h"
#include "model/guarded.h"
#include "model/notation.h"
#include "model/real.h"

using namespace model;

static constexpr Allow no_null = {.null = false};

TEST(MChs, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        const t_DECIMAL x = draw.record(no_null);
        t_DECIMAL r = draw.record();
        ASSERT_EQ(m_chs(&x, &r), REAL_OK);
        ASSERT_TRUE(same(r, model::change_sign(x))) << show(x) << " became " << show(r);
        ASSERT_EQ(m_sgn(&x), model::sign(x)) << show(x);
    }
}

TEST(MCmp, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        const auto [a, b] = draw.pair(no_null);
        ASSERT_EQ(m_cmp(&a, &b), compare(a, b)) << show(a) << "  " << show(b);
    }
}

TEST(MStore, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(100000); rounds.more();) {
        const t_DECIMAL x = draw.record(no_null);
        const int length = draw.between(2, 12);
        Guarded field(length);
        ASSERT_EQ(m_store(&x, field.data(), length), REAL_OK);
        ASSERT_EQ(show(field.bytes()), show(packed(x, length))) << show(x);
        ASSERT_TRUE(field.intact());
        t_DECIMAL r = draw.record();
        const Real expected = real_from_field(field.bytes());
        ASSERT_EQ(m_load(field.data(), length, &r), expected.status) << show(field.bytes());
        ASSERT_EQ(show(r), show(expected.value)) << show(field.bytes());
    }
}

TEST(MToInt, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        t_DECIMAL x = draw.record(no_null);
        if (!draw.one_in(8)) x.dec_exp = static_cast<int16_t>(draw.between(-1, 6));
        int32_t value = 4711;
        const Integer expected = real_to_integer(x);
        ASSERT_EQ(m_to_int(&x, &value), expected.status) << show(x);
        ASSERT_EQ(value, expected.value) << show(x);
    }
}

TEST(MCvInt, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        const int32_t value = static_cast<int32_t>(draw.bits()) >> draw.below(32);
        t_DECIMAL r = draw.record();
        ASSERT_EQ(m_cv_int(value, &r), REAL_OK);
        ASSERT_EQ(show(r), show(real_from_integer(value).value)) << value;
    }
}

TEST(MCvDbl, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(60000); rounds.more();) {
        const double value = draw.finite_double();
        t_DECIMAL r = draw.record();
        const Real expected = real_from_double(value);
        ASSERT_EQ(m_cv_dbl(value, &r), expected.status) << show(value);
        ASSERT_EQ(show(r), show(expected.value)) << show(value);
    }
}

TEST(MToDbl, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(100000); rounds.more();) {
        const t_DECIMAL x = draw.record(no_null);
        double value = NAN;
        ASSERT_EQ(m_to_dbl(&x, &value), REAL_OK);
        const std::optional<double> expected = real_to_double(x);
        if (expected) {
            ASSERT_EQ(show(value), show(*expected)) << show(x);
        }
    }
}

TEST(MToDbl, keeps_the_order)
{
    Draw draw;
    for (Rounds rounds(60000); rounds.more();) {
        auto [low, high] = draw.pair(normal_only);
        if (m_cmp(&low, &high) > 0) std::swap(low, high);
        double first = 0;
        double second = 0;
        m_to_dbl(&low, &first);
        m_to_dbl(&high, &second);
        ASSERT_LE(first, second) << show(low) << " and " << show(high);
    }
}

TEST(MCvDbl, fourteen_decimals_survive_the_double)
{
    Draw draw;
    for (Rounds rounds(60000); rounds.more();) {
        t_DECIMAL x = draw.record(normal_only);
        x.dec_exp = static_cast<int16_t>(draw.between(-6, 9));
        x.dec_ndgts = std::min<int8_t>(x.dec_ndgts, 7);
        x.dec_dgts[x.dec_ndgts - 1] |= 1;
        double d = 0;
        t_DECIMAL back;
        m_to_dbl(&x, &d);
        ASSERT_EQ(m_cv_dbl(d, &back), REAL_OK);
        ASSERT_EQ(show(back), show(x)) << "through " << show(d);
    }
}

TEST(MGcvt, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(150000); rounds.more();) {
        const t_DECIMAL x = draw.record(no_null);
        const int ndigit = draw.one_in(20) ? draw.between(-2, 160) : draw.between(0, 18);
        const std::optional<std::string> expected = real_general(x, ndigit);
        Guarded buffer(std::max(ndigit + 8, 2));
        const std::string text = m_gcvt(&x, ndigit, buffer.data());
        ASSERT_TRUE(buffer.intact()) << show(x) << " to " << ndigit;
        if (expected) {
            ASSERT_EQ(text, *expected) << show(x) << " to " << ndigit;
        }
    }
}

TEST(MToAsc, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(150000); rounds.more();) {
        t_DECIMAL x = draw.record(no_null);
        if (draw.one_in(2)) x.dec_exp = static_cast<int16_t>(draw.between(-4, 10));
        const int length = draw.between(1, 26);
        const int places = draw.between(-1, 12);
        Guarded buffer(length + 1);
        const std::string text = m_to_asc(&x, buffer.data(), length, places);
        ASSERT_TRUE(buffer.intact()) << show(x) << " length " << length << " places " << places;
        ASSERT_EQ(text, real_layout(x, length, places)) << show(x) << " length " << length << " places " << places;
    }
}

TEST(MCvAsc, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(150000); rounds.more();) {
        char text[64];
        const int length =
            snprintf(text, sizeof text, "%s%d.%0*de%d%s", draw.one_in(2) ? "" : " -", draw.below(20000),
                     draw.between(1, 12), draw.below(100000), draw.between(-150, 150),
                     draw.one_in(8)   ? "xy"
                     : draw.one_in(2) ? "  "
                                      : "");
        const std::optional<Real> expected = real_from_text({text, static_cast<size_t>(length)});
        t_DECIMAL r = draw.record();
        ASSERT_TRUE(expected);
        ASSERT_EQ(m_cv_asc(text, length, &r), expected->status) << text;
        ASSERT_EQ(show(r), show(expected->value)) << text;
    }
}

TEST(MEcvt, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(150000); rounds.more();) {
        const t_DECIMAL x = draw.record(no_null);
        const bool total = draw.one_in(2);
        const int count = draw.between(-2, 20);
        Digits expected = digit_string(x, count, total ? Count::total : Count::after_point);
        if (!expected.text.empty() && expected.text[0] == '0') expected.decpt = expected.sign = 0;
        int decpt = -77777;
        int sign_flag = -77777;
        const std::string text = (total ? m_ecvt : m_fcvt)(&x, count, &decpt, &sign_flag);
        ASSERT_EQ(text, expected.text) << show(x) << " count " << count;
        ASSERT_EQ(decpt, *expected.decpt) << show(x) << " count " << count;
        ASSERT_EQ(sign_flag, *expected.sign) << show(x) << " count " << count;
    }
}
