// SPDX-License-Identifier: MIT
//
// REAL operations on records that no operation makes: every call comes back within its buffers.
#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "ka/real.h"
#include "model/guarded.h"
#include "model/notation.h"

using namespace model;

static std::vector<t_DECIMAL> hostile_records()
{
    std::vector<t_DECIMAL> records;
    for (const int ndgts : {9, 16, 127, -1, -8, -128, 8, 1, 0}) {
        for (const int exp : {-32768, -65, -64, 0, 1, 5, 63, 64, 32767}) {
            for (const int pos : {0, 1, 7}) {
                for (const int byte : {0, 1, 99, 255}) {
                    t_DECIMAL x = {};
                    x.dec_exp = static_cast<int16_t>(exp);
                    x.dec_pos = static_cast<uint8_t>(pos);
                    x.dec_ndgts = static_cast<int8_t>(ndgts);
                    memset(x.dec_dgts, byte, sizeof x.dec_dgts);
                    records.push_back(x);
                }
            }
        }
    }
    return records;
}

TEST(HostileReal, numbers_and_order_come_back)
{
    for (const t_DECIMAL &record : hostile_records()) {
        const auto x = std::make_unique<const t_DECIMAL>(record);
        const int sign = m_sgn(x.get());
        EXPECT_TRUE(sign >= -1 && sign <= 1) << show_raw(*x);
        const int order = m_cmp(x.get(), &c_dec_one);
        EXPECT_TRUE(order >= -1 && order <= 1) << show_raw(*x);
        t_DECIMAL r;
        EXPECT_EQ(m_chs(x.get(), &r), REAL_OK) << show_raw(*x);
        int32_t i = 0;
        const int status = m_to_int(x.get(), &i);
        EXPECT_TRUE(status == REAL_OK || status == REAL_NOT_INTEGER) << show_raw(*x);
        double d = 0;
        EXPECT_EQ(m_to_dbl(x.get(), &d), REAL_OK) << show_raw(*x);
    }
}

TEST(HostileReal, fields_and_buffers_are_not_overrun)
{
    for (const t_DECIMAL &record : hostile_records()) {
        const auto x = std::make_unique<const t_DECIMAL>(record);
        for (const int length : {2, 5, 9, 20}) {
            Guarded field(length);
            EXPECT_EQ(m_store(x.get(), field.data(), length), REAL_OK);
            Guarded text(length + 1);
            m_to_asc(x.get(), text.data(), length, 2);
            ASSERT_TRUE(field.intact() && text.intact()) << show_raw(*x) << " in " << length;
        }
        for (const int places : {INT_MIN, -1, 0, 200, INT_MAX}) {
            Guarded text(21);
            m_to_asc(x.get(), text.data(), 20, places);
            int decpt = 0;
            int sign = 0;
            ASSERT_LE(strlen(m_fcvt(x.get(), places, &decpt, &sign)), 151u) << show_raw(*x);
            ASSERT_LE(strlen(m_ecvt(x.get(), places, &decpt, &sign)), 151u) << show_raw(*x);
            ASSERT_TRUE(text.intact()) << show_raw(*x) << " to " << places;
        }
    }
}

TEST(HostileReal, general_format_of_any_digits_and_sign_stays_within_its_buffer)
{
    for (const t_DECIMAL &record : hostile_records()) {
        for (const int ndigit : {INT_MIN, -1, 0, 1, 2, 4, 14, 15, 16, 17, 151, 200}) {
            Guarded buffer(ndigit > 0 ? ndigit + 8 : 2);
            m_gcvt(&record, ndigit, buffer.data());
            ASSERT_TRUE(buffer.intact()) << show_raw(record) << " to " << ndigit;
        }
    }
}
