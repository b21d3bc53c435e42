// SPDX-License-Identifier: MIT
//
// Records that no operation makes: digit counts above 8 and below 0, exponents, sign bytes and digits of any kind.
// The results are not defined, but every call must return, and must neither read nor write past its operands: each
// record is alone on the heap, so that the sanitizers see it, and results are between guard bytes.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "dec_int.h"
#include "model/exact.h"
#include "model/guarded.h"
#include "model/notation.h"

using namespace model;

static std::vector<t_DECIMAL> hostile_records()
{
    std::vector<t_DECIMAL> records;
    for (const int ndgts : {9, 10, 16, 100, 127, -1, -2, -8, -127, -128, 8, 1, 0}) {
        for (const int exp : {-32768, -1000, -65, -64, -1, 0, 1, 4, 5, 9, 63, 64, 1000, 32767}) {
            for (const int pos : {0, 1, 7, 255}) {
                for (const int byte : {0, 1, 99, 100, 255})
                    records.push_back(filled(exp, pos, ndgts, byte));
            }
        }
    }
    return records;
}

static std::string describe(const t_DECIMAL &x)
{
    return show_raw(x);
}

struct GuardedRecord {
    uint8_t before[16] = {};
    t_DECIMAL record = {};
    uint8_t after[16] = {};

    bool intact() const
    {
        const uint8_t untouched[16] = {};
        return memcmp(before, untouched, sizeof before) == 0 && memcmp(after, untouched, sizeof after) == 0;
    }
};

// Calls the operation with each hostile record and a result record between guards.
static void survive(const std::function<void(const t_DECIMAL &, t_DECIMAL *)> &operation)
{
    for (const t_DECIMAL &x : hostile_records()) {
        const auto alone = std::make_unique<const t_DECIMAL>(x);
        GuardedRecord result;
        operation(*alone, &result.record);
        ASSERT_TRUE(result.intact()) << describe(x);
    }
}

static const t_DECIMAL ordinary = read_record("5:-:21,47,48,36,48");

TEST(HostileRecord, addition_comes_back)
{
    survive([](const t_DECIMAL &x, t_DECIMAL *result) {
        decadd(&x, &ordinary, result);
        decadd(&ordinary, &x, result);
        decadd(&x, &x, result);
        *result = x;
        decadd(result, &c_dec_one, result);
    });
}

TEST(HostileRecord, subtraction_comes_back)
{
    survive([](const t_DECIMAL &x, t_DECIMAL *result) {
        decsub(&x, &ordinary, result);
        decsub(&ordinary, &x, result);
        decsub(&x, &x, result);
        *result = x;
        decsub(&c_dec_one, result, result);
    });
}

TEST(HostileRecord, operands_of_any_kind_come_back)
{
    const std::vector<t_DECIMAL> records = hostile_records();
    for (size_t i = 0; i < records.size(); i += 7) {
        for (size_t j = 0; j < records.size(); j += 11) {
            const auto a = std::make_unique<const t_DECIMAL>(records[i]);
            const auto b = std::make_unique<const t_DECIMAL>(records[j]);
            t_DECIMAL result;
            decadd(a.get(), b.get(), &result);
            decsub(a.get(), b.get(), &result);
            decmul(a.get(), b.get(), &result);
            decdiv(a.get(), b.get(), &result);
            const int order = deccmp(a.get(), b.get());
            ASSERT_TRUE(order >= DEC_NOT_COMPARABLE && order <= 1) << describe(*a) << "  " << describe(*b);
        }
    }
}

TEST(HostileRecord, multiplication_comes_back)
{
    survive([](const t_DECIMAL &x, t_DECIMAL *result) {
        decmul(&x, &ordinary, result);
        decmul(&ordinary, &x, result);
        decmul(&x, &x, result);
        *result = x;
        decmul(result, &ordinary, result);
    });
}

TEST(HostileRecord, division_comes_back)
{
    survive([](const t_DECIMAL &x, t_DECIMAL *result) {
        decdiv(&x, &ordinary, result);
        decdiv(&ordinary, &x, result);
        decdiv(&x, &x, result);
        *result = x;
        decdiv(&ordinary, result, result);
    });
}

TEST(HostileRecord, rounding_to_places_stays_within_the_record)
{
    survive([](const t_DECIMAL &x, t_DECIMAL *result) {
        for (const int places : {INT_MIN, -1, 0, 1, 2, 7, 8, 15, 16, 17, 200, 65535, 65536, INT_MAX}) {
            *result = x;
            decround(result, places);
        }
    });
}

TEST(HostileRecord, cutting_to_places_stays_within_the_record)
{
    survive([](const t_DECIMAL &x, t_DECIMAL *result) {
        for (const int places : {INT_MIN, -1, 0, 1, 2, 7, 8, 15, 16, 17, 200, 65535, 65536, INT_MAX}) {
            *result = x;
            dectrunc(result, places);
        }
    });
}

// A divisor whose first digits are 0 gives no estimate of a quotient digit, or one that is far too large.
TEST(HostileRecord, division_by_leading_zero_digits_comes_back)
{
    for (int zeros = 1; zeros <= DEC_DIGITS; zeros++) {
        for (int ndgts = 1; ndgts <= DEC_DIGITS; ndgts++) {
            for (const int digit : {1, 2, 50, 99, 100, 255}) {
                t_DECIMAL divisor = filled(1, DEC_POSITIVE, ndgts, digit);
                std::fill_n(divisor.dec_dgts, zeros, uint8_t{0});
                for (const int first : {0, 1, 99, 255}) {
                    const t_DECIMAL dividend = filled(1, DEC_NEGATIVE, DEC_DIGITS, first);
                    GuardedRecord result;
                    decdiv(&dividend, &divisor, &result.record);
                    ASSERT_TRUE(result.intact()) << describe(dividend) << "  " << describe(divisor);
                }
            }
        }
    }
}

TEST(HostileRecord, sign_change_comes_back)
{
    survive([](const t_DECIMAL &x, t_DECIMAL *result) {
        *result = x;
        EXPECT_EQ(decchs(result), DEC_OK);
    });
}

TEST(HostileRecord, storing_stays_within_the_field)
{
    survive([](const t_DECIMAL &x, t_DECIMAL *) {
        for (const int length : {-1, 0, 1, 2, 3, 8, 9, 10, 20, 200}) {
            Guarded field(std::max(length, 0));
            stdecimal(&x, field.data(), length);
            ASSERT_TRUE(field.intact()) << describe(x) << " in " << length;
        }
    });
}

TEST(HostileRecord, digit_strings_stay_within_their_buffer)
{
    survive([](const t_DECIMAL &x, t_DECIMAL *) {
        for (const int count : {INT_MIN, -100, -1, 0, 1, 2, 14, 15, 17, 150, 151, 152, 1000, INT_MAX}) {
            int decpt = 0;
            int sign = 0;
            ASSERT_LE(strlen(dececvt(&x, count, &decpt, &sign)), 151u) << describe(x) << " count " << count;
            ASSERT_LE(strlen(decfcvt(&x, count, &decpt, &sign)), 151u) << describe(x) << " places " << count;
        }
    });
}

TEST(HostileRecord, layout_stays_within_the_field)
{
    survive([](const t_DECIMAL &x, t_DECIMAL *) {
        for (const int length : {-1, 0, 1, 2, 3, 5, 8, 20, 160, 300}) {
            for (const int places : {INT_MIN, -1, 0, 1, 6, 151, 300, INT_MAX}) {
                Guarded field(std::max(length, 0));
                EXPECT_EQ(dectoasc(&x, field.data(), length, places), DEC_OK);
                ASSERT_TRUE(field.intact()) << describe(x) << " length " << length << " places " << places;
            }
        }
    });
}

TEST(HostileRecord, conversion_to_integers_comes_back)
{
    survive([](const t_DECIMAL &x, t_DECIMAL *) {
        int16_t narrow = 0;
        int32_t wide = 0;
        const int code16 = dectoint16(&x, &narrow);
        const int code32 = dectoint32(&x, &wide);
        const int code = dectofix(&x, &wide);
        for (const int each : {code16, code32, code})
            EXPECT_TRUE(each == DEC_OK || each == DEC_OVERFLOW) << describe(x);
    });
}

TEST(HostileRecord, conversion_to_floating_point_comes_back)
{
    survive([](const t_DECIMAL &x, t_DECIMAL *) {
        double wide = 0;
        float narrow = 0;
        EXPECT_EQ(dectodbl(&x, &wide), DEC_OK);
        EXPECT_EQ(dectoflt(&x, &narrow), DEC_OK);
        for (const int digits : {-100, -1, 0, 9, INT_MAX})
            EXPECT_EQ(dectoreal(&x, &wide, digits), DEC_OK);
    });
}

TEST(HostileField, any_bytes_load)
{
    for (int first = 0; first < 256; first++) {
        for (const int byte : {0, 1, 99, 100, 255}) {
            for (const int length : {1, 2, 5, 9, 10, 30}) {
                std::vector<uint8_t> field(static_cast<size_t>(length), static_cast<uint8_t>(byte));
                field[0] = static_cast<uint8_t>(first);
                GuardedRecord result;
                EXPECT_EQ(lddecimal(field.data(), length, &result.record), DEC_OK);
                ASSERT_TRUE(result.intact() && result.record.dec_ndgts >= 0 && result.record.dec_ndgts <= DEC_DIGITS)
                    << show(field);
            }
        }
    }
}
