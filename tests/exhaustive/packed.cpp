// SPDX-License-Identifier: MIT
//
// Packed storage over all exponents, both signs, all digit counts and lengths, and the order of the fields.
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>

#include "model/binary.h"
#include "model/notation.h"

using namespace model;

// Runs of digits that carry, tie, nearly tie and neither; count of each from 0 to 8.
static std::vector<std::vector<int>> patterns()
{
    std::vector<std::vector<int>> all = {{}};
    for (size_t count = 1; count <= static_cast<size_t>(DEC_DIGITS); count++) {
        for (const int first : {1, 50, 98, 99}) {
            for (const int middle : {0, 49, 50, 99}) {
                for (const int last : {1, 49, 50, 99}) {
                    std::vector<int> digits(count, middle);
                    digits.front() = first;
                    if (count > 1) digits.back() = last;
                    all.push_back(digits);
                }
            }
        }
    }
    std::sort(all.begin(), all.end());
    all.erase(std::unique(all.begin(), all.end()), all.end());
    return all;
}

TEST(AllFields, store_and_load_as_defined)
{
    const std::vector<std::vector<int>> digits = patterns();
    for (int exp = DEC_EXP_MIN; exp <= DEC_EXP_MAX; exp++) {
        for (const int pos : {DEC_NEGATIVE, DEC_POSITIVE}) {
            for (const std::vector<int> &run : digits) {
                const t_DECIMAL x = record(exp, pos, run);
                for (int length = 2; length <= 10; length++) {
                    std::vector<uint8_t> field(static_cast<size_t>(length), 0xEE);
                    stdecimal(&x, field.data(), length);
                    ASSERT_EQ(field, packed(x, length)) << show(x) << " in " << length << ": " << show(field);
                    t_DECIMAL back = {};
                    lddecimal(field.data(), length, &back);
                    ASSERT_TRUE(same(back, unpacked(field))) << show(field) << " loads as " << show(back);
                }
            }
        }
    }
}

TEST(AllFields, values_that_fit_come_back)
{
    const std::vector<std::vector<int>> digits = patterns();
    for (int exp = DEC_EXP_MIN; exp <= DEC_EXP_MAX; exp++) {
        for (const int pos : {DEC_NEGATIVE, DEC_POSITIVE}) {
            // This one byte means null.
            if (exp == DEC_EXP_MAX && pos == DEC_NEGATIVE) continue;
            for (const std::vector<int> &run : digits) {
                const t_DECIMAL x = record(exp, run.empty() ? DEC_POSITIVE : pos, run);
                for (int length = std::max<int>(2, x.dec_ndgts + 1); length <= 10; length++) {
                    uint8_t field[10];
                    stdecimal(&x, field, length);
                    t_DECIMAL back = {};
                    lddecimal(field, length, &back);
                    ASSERT_TRUE(same(back, x)) << show(x) << " in " << length << " loads as " << show(back);
                }
            }
        }
    }
}

TEST(AllFields, length_1_keeps_exponent_and_sign)
{
    for (int exp = DEC_EXP_MIN; exp <= DEC_EXP_MAX; exp++) {
        for (const int pos : {DEC_NEGATIVE, DEC_POSITIVE}) {
            const t_DECIMAL x = record(exp, pos, {49, 99});
            uint8_t field = 0;
            stdecimal(&x, &field, 1);
            ASSERT_EQ(field, pos == DEC_POSITIVE ? 0x80 + exp + 64 : 63 - exp) << exp;
            t_DECIMAL back = record(0, DEC_POSITIVE, {7});
            lddecimal(&field, 1, &back);
            const bool null = field == 0;
            ASSERT_EQ(show(back), null ? "null" : show(record(exp, pos, {}))) << exp;
        }
    }
}

// Values in ascending order: all exponents and both signs, with the patterns as digits.
static std::vector<t_DECIMAL> ascending_values()
{
    std::vector<t_DECIMAL> positive;
    for (int exp = DEC_EXP_MIN; exp < DEC_EXP_MAX; exp++) {
        for (const std::vector<int> &run : patterns()) {
            if (!run.empty()) positive.push_back(record(exp, DEC_POSITIVE, run));
        }
    }
    std::vector<t_DECIMAL> all;
    for (auto x = positive.rbegin(); x != positive.rend(); ++x)
        all.push_back(change_sign(*x));
    all.insert(all.end(), positive.begin(), positive.end());
    return all;
}

static void fields_keep_the_order(int length, bool rounded)
{
    const std::vector<t_DECIMAL> values = ascending_values();
    uint8_t before[9];
    uint8_t field[9];
    for (size_t i = 0; i < values.size(); i++) {
        stdecimal(&values[i], field, length);
        if (i > 0) {
            const int order = memcmp(before, field, static_cast<size_t>(length));
            ASSERT_TRUE(order < 0 || (rounded && order == 0)) << show(values[i - 1]) << " and " << show(values[i]);
        }
        memcpy(before, field, sizeof field);
    }
}

TEST(AllFields, full_fields_compare_as_their_values)
{
    fields_keep_the_order(9, false);
}

TEST(AllFields, rounded_fields_never_compare_the_other_way)
{
    for (int length = 2; length < 9; length++)
        fields_keep_the_order(length, true);
}
