// SPDX-License-Identifier: MIT
//
// REAL operations on records that no operation makes: every call comes back within its buffers, or ends by abort
// where it says so.
#include <climits>
#include <csetjmp>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <unistd.h>
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

static sigjmp_buf back;

static void jump_back(int)
{
    siglongjmp(back, 1);
}

// While it lives, an abort within aborts() comes back, and its two lines are not seen.
class AbortsComeBack {
public:
    AbortsComeBack() : errors_(dup(STDERR_FILENO)), handler_(signal(SIGABRT, jump_back))
    {
        EXPECT_NE(freopen("/dev/null", "w", stderr), nullptr);
    }
    ~AbortsComeBack()
    {
        dup2(errors_, STDERR_FILENO);
        close(errors_);
        signal(SIGABRT, handler_);
    }

private:
    int errors_;
    sighandler_t handler_;
};

template <class Call>
static bool aborts(const Call &call)
{
    if (sigsetjmp(back, 1) != 0) return true;
    call();
    return false;
}

// Operands that end where their heap block ends, and a result between guards.
class Records {
public:
    Records(const t_DECIMAL &a, const t_DECIMAL &b)
        : a_(std::make_unique<t_DECIMAL>(a)), b_(std::make_unique<t_DECIMAL>(b)), guarded_{guard, guard, guard}
    {
    }
    const t_DECIMAL *a() const { return a_.get(); }
    const t_DECIMAL *b() const { return b_.get(); }
    t_DECIMAL *result() { return &guarded_[1]; }
    bool intact() const
    {
        return memcmp(&guarded_[0], &guard, sizeof guard) == 0 && memcmp(&guarded_[2], &guard, sizeof guard) == 0;
    }

private:
    static constexpr t_DECIMAL guard = {0x5A5A, 0x5A, 0x5A, {0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A}};
    std::unique_ptr<t_DECIMAL> a_;
    std::unique_ptr<t_DECIMAL> b_;
    t_DECIMAL guarded_[3];
};

static const t_DECIMAL partners[] = {c_dec_one, read_record("5:-:21,47,48,36,48"), c_dec_huge, read_record("-64:+:1"),
                                     c_dec_zero};

TEST(HostileReal, arithmetic_comes_back_or_aborts)
{
    const AbortsComeBack no_end;
    for (const t_DECIMAL &hostile : hostile_records()) {
        for (const t_DECIMAL &partner : partners) {
            for (const auto operation : {m_add, m_sub, m_mpy, m_dvd}) {
                Records records(hostile, partner);
                int status = 0;
                const auto valid = [&] {
                    return status == REAL_OK || status == REAL_RANGE || status == REAL_DIVISION_BY_ZERO;
                };
                aborts([&] { status = operation(records.a(), records.b(), records.result()); });
                ASSERT_TRUE(valid() && records.intact()) << show_raw(hostile) << " and " << show(partner);
                aborts([&] { status = operation(records.b(), records.a(), records.result()); });
                ASSERT_TRUE(valid() && records.intact()) << show(partner) << " and " << show_raw(hostile);
                *records.result() = hostile;
                aborts([&] { status = operation(records.result(), records.result(), records.result()); });
                ASSERT_TRUE(valid() && records.intact()) << show_raw(hostile);
            }
        }
    }
}

TEST(HostileReal, places_and_precision_come_back_or_abort)
{
    const AbortsComeBack no_end;
    for (const t_DECIMAL &hostile : hostile_records()) {
        for (const int count : {INT_MIN, -1, 0, 1, 2, 7, 14, 15, 16, 17, 200, 65535, INT_MAX - 1, INT_MAX}) {
            for (const auto operation : {m_trunc, m_round}) {
                Records records(hostile, hostile);
                int status = REAL_OK;
                EXPECT_EQ(aborts([&] { status = operation(records.a(), count, records.result()); }), count < 0);
                ASSERT_TRUE(status == REAL_OK && records.intact()) << show_raw(hostile) << " to " << count;
                *records.result() = hostile;
                EXPECT_EQ(aborts([&] { status = operation(records.result(), count, records.result()); }), count < 0);
                ASSERT_TRUE(status == REAL_OK && records.intact()) << show_raw(hostile) << " to " << count;
            }
            Records records(hostile, hostile);
            *records.result() = hostile;
            int status = REAL_OK;
            aborts([&] { status = mkprec(records.result(), count); });
            ASSERT_TRUE((status == REAL_OK || status == REAL_RANGE) && records.intact())
                << show_raw(hostile) << " to " << count;
        }
    }
}
