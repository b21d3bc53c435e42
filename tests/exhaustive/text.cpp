// SPDX-License-Identifier: MIT
//
// Reading every short text over the characters that matter, and laying out values in every field and with all places.
#include <gtest/gtest.h>

#include "model/guarded.h"
#include "model/notation.h"
#include "model/text.h"

using namespace model;

static void read_all(std::string &text, size_t size)
{
    static constexpr char characters[] = " +-.e059x";
    if (text.size() == size) {
        t_DECIMAL result = {};
        const int code = deccvasc(text.data(), static_cast<int>(size), &result);
        const Outcome expected = parse(text);
        ASSERT_TRUE(code == expected.code && same(result, expected.record))
            << '"' << text << "\"\n  expected: " << expected.code << " " << show(expected.record)
            << "\n  got:      " << code << " " << show(result);
        return;
    }
    for (const char *c = characters; *c; c++) {
        text.push_back(*c);
        read_all(text, size);
        text.pop_back();
        if (testing::Test::HasFatalFailure()) return;
    }
}

TEST(AllTexts, up_to_six_characters_are_read_as_defined)
{
    for (size_t size = 0; size <= 6; size++) {
        std::string text;
        read_all(text, size);
        if (HasFatalFailure()) return;
    }
}

TEST(AllTexts, every_exponent_of_the_text_reaches_its_record)
{
    for (const std::string mantissa : {"1", "-12", "9.99", "0.012", "99999999999999999", "1234567890123456.78"}) {
        for (int exponent = -1001; exponent <= 1001; exponent++) {
            const std::string text = mantissa + "e" + std::to_string(exponent);
            t_DECIMAL result = {};
            const int code = deccvasc(text.data(), static_cast<int>(text.size()), &result);
            const Outcome expected = parse(text);
            ASSERT_TRUE(code == expected.code && same(result, expected.record)) << text << " gives " << show(result);
        }
    }
}

static std::vector<t_DECIMAL> values_to_lay_out()
{
    std::vector<t_DECIMAL> values;
    for (int exp = -5; exp <= 9; exp++) {
        for (const int pos : {DEC_NEGATIVE, DEC_POSITIVE}) {
            for (const std::vector<int> &digits : {std::vector<int>{},
                                                   {1},
                                                   {9},
                                                   {10},
                                                   {50},
                                                   {99},
                                                   {9, 95},
                                                   {99, 95},
                                                   {12, 34, 50},
                                                   {5, 0, 1},
                                                   {99, 99, 99, 99},
                                                   {12, 34, 56, 78, 90},
                                                   {99, 99, 99, 99, 99, 99, 99, 99},
                                                   {1, 23, 45, 67, 89, 1, 23, 45}})
                values.push_back(record(exp, pos, digits));
        }
    }
    return values;
}

TEST(AllLayouts, every_field_and_all_places)
{
    for (const t_DECIMAL &x : values_to_lay_out()) {
        for (int length = 0; length <= 24; length++) {
            for (int places = -1; places <= 20; places++) {
                Guarded field(length);
                dectoasc(&x, field.data(), length, places);
                ASSERT_TRUE(field.intact() && field.text() == layout(x, length, places))
                    << show(x) << " length " << length << " places " << places << "\n  expected: \""
                    << layout(x, length, places) << "\"\n  got:      \"" << field.text() << '"';
            }
        }
    }
}
