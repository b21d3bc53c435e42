// SPDX-License-Identifier: MIT
//
// Every operation that has a fast way beside the plain one: the same code and the same bytes, those past the digits
// in use included, for operands of every kind, normal or not, and for every aliasing of operands and result.
#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>

#include "model/aliased.h"
#include "model/draw.h"
#include "model/notation.h"
#include "plain_arithmetic.h"
#include "plain_text.h"

using namespace model;

namespace {

using Binary = int (*)(const t_DECIMAL *, const t_DECIMAL *, t_DECIMAL *);

// A record of any bytes, or one that is sound but for one thing.
t_DECIMAL broken(Draw &draw)
{
    t_DECIMAL x = draw.record();
    switch (draw.below(6)) {
    case 0:
        x.dec_ndgts = static_cast<int8_t>(draw.bits());
        break;
    case 1:
        x.dec_pos = static_cast<uint8_t>(draw.pick({2, 7, 127, 128, 253, 254, 255}));
        break;
    case 2:
        x.dec_dgts[draw.below(DEC_DIGITS)] = static_cast<uint8_t>(draw.between(100, 255));
        break;
    case 3:
        x.dec_exp = static_cast<int16_t>(draw.one_in(2) ? draw.bits() : draw.pick({INT16_MIN, INT16_MAX, 64, -65}));
        break;
    case 4:
        std::fill_n(x.dec_dgts, draw.between(1, DEC_DIGITS), uint8_t{0});
        break;
    default:
        for (uint8_t &byte : x.dec_dgts)
            byte = static_cast<uint8_t>(draw.bits());
    }
    return x;
}

Pair any_pair(Draw &draw)
{
    Pair pair = draw.pair();
    if (draw.one_in(8)) pair.first = broken(draw);
    if (draw.one_in(8)) pair.second = broken(draw);
    return pair;
}

std::string bytes(const t_DECIMAL &x)
{
    return show_raw(x);
}

// Operation and reference on copies of the same three records; aliasing says which of them are one.
void expect_same_bytes(Binary operation, Binary reference, const Pair &operands, const t_DECIMAL &before,
                       int aliasing)
{
    const bool one_operand = aliasing >= 3;
    const auto run = [&](Binary function, t_DECIMAL(&records)[3]) {
        records[0] = one_operand ? operands.second : operands.first;
        records[1] = operands.second;
        records[2] = before;
        t_DECIMAL *result = &records[aliasing == 0 || aliasing == 3 ? 2 : aliasing == 2 ? 1 : 0];
        return function(&records[0], one_operand ? &records[0] : &records[1], result);
    };
    t_DECIMAL got[3], expected[3];
    const int code = run(operation, got);
    const int expected_code = run(reference, expected);
    ASSERT_TRUE(code == expected_code && memcmp(got, expected, sizeof got) == 0)
        << "a " << bytes(operands.first) << "  b " << bytes(operands.second) << "  aliasing " << aliasing
        << "\n  expected: " << expected_code << " " << bytes(expected[0]) << " " << bytes(expected[1]) << " "
        << bytes(expected[2]) << "\n  got:      " << code << " " << bytes(got[0]) << " " << bytes(got[1]) << " "
        << bytes(got[2]);
}

void random_operands(Binary operation, Binary reference, int rounds_by_default)
{
    Draw draw;
    for (Rounds rounds(rounds_by_default); rounds.more() && !testing::Test::HasFatalFailure();)
        expect_same_bytes(operation, reference, any_pair(draw), draw.record(), draw.below(5));
}

t_DECIMAL number(int exp, int pos, std::initializer_list<int> digits)
{
    t_DECIMAL x = record(exp, pos, digits);
    x.dec_ndgts = static_cast<int8_t>(dec_trim(x.dec_dgts, x.dec_ndgts));
    return x;
}

// All digits beside all digits, in every alignment that matters, with equal and different signs.
void one_digit_operands(Binary operation, Binary reference)
{
    const t_DECIMAL before = record(7, DEC_NULL, {1, 2, 3, 4, 5, 6, 7, 8});
    for (int first = 0; first < DEC_BASE; first++)
        for (int second = 0; second < DEC_BASE; second++)
            for (int distance = -9; distance <= 9; distance++)
                for (const int pos : {DEC_NEGATIVE, DEC_POSITIVE}) {
                    const Pair pair = {number(3, DEC_POSITIVE, {first}), number(3 - distance, pos, {second})};
                    expect_same_bytes(operation, reference, pair, before, 0);
                    if (testing::Test::HasFatalFailure()) return;
                }
}

// Every pair of last digits under runs of 99, 0 and 50, in every digit count.
void runs_of_digits(Binary operation, Binary reference)
{
    const t_DECIMAL before = record(7, DEC_NULL, {1, 2, 3, 4, 5, 6, 7, 8});
    for (const int filling : {99, 0, 50, 1, 98, 49})
        for (const int other : {99, 0, 50, 1})
            for (int count = 1; count <= DEC_DIGITS; count++)
                for (int others = 1; others <= DEC_DIGITS; others++)
                    for (const int first : {0, 1, 10, 50, 98, 99})
                        for (const int last : {0, 1, 49, 50, 51, 99})
                            for (int distance = 0; distance <= 9; distance++) {
                                t_DECIMAL a = filled(3, DEC_POSITIVE, count, filling);
                                t_DECIMAL b = filled(3 - distance, distance % 2, others, other);
                                a.dec_dgts[0] = static_cast<uint8_t>(first);
                                b.dec_dgts[others - 1] = static_cast<uint8_t>(last);
                                expect_same_bytes(operation, reference, {a, b}, before, 0);
                                expect_same_bytes(operation, reference, {b, a}, before, 0);
                                if (testing::Test::HasFatalFailure()) return;
                            }
}

int compared(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *)
{
    return deccmp(a, b);
}

int compared_plainly(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *)
{
    return plain::deccmp(a, b);
}

} // namespace

class SameBytes : public testing::TestWithParam<std::tuple<const char *, Binary, Binary>> {
protected:
    Binary operation() const { return std::get<1>(GetParam()); }
    Binary reference() const { return std::get<2>(GetParam()); }
};

TEST_P(SameBytes, random_operands)
{
    random_operands(operation(), reference(), 300000);
}

TEST_P(SameBytes, one_digit_operands)
{
    one_digit_operands(operation(), reference());
}

TEST_P(SameBytes, runs_of_digits)
{
    runs_of_digits(operation(), reference());
}

INSTANTIATE_TEST_SUITE_P(As, SameBytes,
                         testing::Values(std::tuple("decadd", &decadd, &plain::decadd),
                                         std::tuple("decsub", &decsub, &plain::decsub),
                                         std::tuple("decmul", &decmul, &plain::decmul),
                                         std::tuple("decdiv", &decdiv, &plain::decdiv),
                                         std::tuple("deccmp", &compared, &compared_plainly)),
                         [](const auto &which) { return std::string(std::get<0>(which.param)); });

// ---- Integers
// ------------------------------------------------------------------------------------------------------

static void expect_same_record(int32_t value)
{
    t_DECIMAL got = record(7, DEC_NULL, {1, 2, 3, 4, 5, 6, 7, 8});
    t_DECIMAL expected = got;
    ASSERT_EQ(deccvint32(value, &got), plain::deccvint32(value, &expected)) << value;
    ASSERT_TRUE(same_bytes(got, expected)) << value << " gives " << bytes(got) << " not " << bytes(expected);
    const auto narrow = static_cast<int16_t>(value);
    ASSERT_EQ(deccvint16(narrow, &got), plain::deccvint16(narrow, &expected)) << narrow;
    ASSERT_TRUE(same_bytes(got, expected)) << narrow << " gives " << bytes(got) << " not " << bytes(expected);
}

TEST(SameBytesOfIntegers, small_round_and_random_ones_become_records)
{
    for (int32_t value = -1100000; value <= 1100000 && !HasFatalFailure(); value++)
        expect_same_record(value);
    for (int64_t power = 1; power < INT64_C(1) << 32; power *= 10)
        for (int64_t factor = 1; factor <= 300; factor++)
            for (const int64_t value : {power * factor - 1, power * factor, power * factor + 1})
                if (value <= INT32_MAX) {
                    expect_same_record(static_cast<int32_t>(value));
                    expect_same_record(static_cast<int32_t>(-value));
                }
    expect_same_record(INT32_MIN);
    Draw draw;
    for (Rounds rounds(300000); rounds.more() && !HasFatalFailure();)
        expect_same_record(static_cast<int32_t>(draw.bits()) >> draw.below(31));
}

static void expect_same_integer(const t_DECIMAL &x)
{
    int32_t got = 12345, expected = 12345;
    ASSERT_EQ(dectoint32(&x, &got), plain::dectoint32(&x, &expected)) << bytes(x);
    ASSERT_EQ(got, expected) << bytes(x);
    int16_t narrow = 12345, expected_narrow = 12345;
    ASSERT_EQ(dectoint16(&x, &narrow), plain::dectoint16(&x, &expected_narrow)) << bytes(x);
    ASSERT_EQ(narrow, expected_narrow) << bytes(x);
}

TEST(SameBytesOfIntegers, records_become_integers)
{
    Draw draw;
    for (Rounds rounds(500000); rounds.more() && !HasFatalFailure();) {
        t_DECIMAL x = draw.one_in(4) ? broken(draw) : draw.record();
        if (draw.one_in(2)) x.dec_exp = static_cast<int16_t>(draw.between(-1, 6));
        if (draw.one_in(4)) { // near the limits
            const int digits[] = {21, 47, 48, 36, 47 + draw.between(-1, 2), draw.digit(), draw.digit(), draw.digit()};
            for (int i = draw.between(0, 4); i < DEC_DIGITS; i++)
                x.dec_dgts[i] = static_cast<uint8_t>(digits[i]);
            x.dec_exp = static_cast<int16_t>(draw.between(4, 6));
        }
        expect_same_integer(x);
    }
}

// ---- Text
// ----------------------------------------------------------------------------------------------------------

// The text is alone on the heap, without a terminator, so that the sanitizers see a read past it.
static void expect_same_parse(const std::string &text, int length)
{
    const auto alone = std::make_unique<char[]>(text.size());
    std::copy(text.begin(), text.end(), alone.get());
    t_DECIMAL got = record(7, DEC_POSITIVE, {1, 2, 3, 4, 5, 6, 7, 8});
    t_DECIMAL expected = got;
    const int code = deccvasc(alone.get(), length, &got);
    const int expected_code = plain::deccvasc(alone.get(), length, &expected);
    ASSERT_TRUE(code == expected_code && same_bytes(got, expected))
        << '"' << text << "\" of length " << length << "\n  expected: " << expected_code << " " << bytes(expected)
        << "\n  got:      " << code << " " << bytes(got);
}

static void expect_same_parse(const std::string &text)
{
    expect_same_parse(text, static_cast<int>(text.size()));
}

static std::string decimals(Draw &draw, int count)
{
    std::string text;
    const int kind = draw.below(4);
    for (int i = 0; i < count; i++)
        text += static_cast<char>('0' + (kind == 0 ? 9 : kind == 1 && !draw.one_in(4) ? 0 : draw.below(10)));
    return text;
}

static std::string number_text(Draw &draw)
{
    std::string text(draw.one_in(4) ? static_cast<size_t>(draw.below(4)) : 0, ' ');
    if (draw.one_in(2)) text += draw.one_in(3) ? "+" : "-";
    text += decimals(draw, draw.below(draw.one_in(4) ? 40 : 12));
    if (!draw.one_in(3)) text += "." + decimals(draw, draw.below(draw.one_in(4) ? 40 : 12));
    if (draw.one_in(3))
        text += (draw.one_in(2) ? "e" : "E-") + std::to_string(draw.below(draw.one_in(2) ? 30 : 1200));
    if (draw.one_in(6)) text += std::string(1, " x.-e"[draw.below(5)]) + (draw.one_in(2) ? " " : "y");
    if (draw.one_in(8) && !text.empty())
        text[static_cast<size_t>(draw.below(static_cast<int>(text.size())))] = static_cast<char>(draw.bits());
    return text;
}

TEST(SameBytesOfText, random_texts_become_records)
{
    Draw draw;
    for (Rounds rounds(400000); rounds.more() && !HasFatalFailure();)
        expect_same_parse(number_text(draw));
    for (const int length : {-1, 0, -1000, INT_MIN})
        expect_same_parse("12", length);
}

TEST(SameBytesOfText, all_short_texts_become_records)
{
    const std::string letters = " +-.0159eEx";
    for (int length = 0; length <= 5; length++) {
        std::vector<size_t> at(static_cast<size_t>(length), 0);
        for (bool more = true; more && !HasFatalFailure();) {
            std::string text;
            for (const size_t each : at)
                text += letters[each];
            expect_same_parse(text);
            more = false;
            for (size_t &each : at) {
                each = (each + 1) % letters.size();
                if (each != 0) {
                    more = true;
                    break;
                }
            }
        }
    }
}

// Every count of decimals before and after the point, with every digit as the one that decides.
TEST(SameBytesOfText, all_lengths_become_records)
{
    for (int whole = 0; whole <= 24; whole++)
        for (int places = 0; places <= 24; places++)
            for (const char digit : {'0', '1', '4', '5', '9'})
                for (const char last : {'0', '1', '4', '5', '9'}) {
                    std::string text = std::string(static_cast<size_t>(whole), digit);
                    if (places > 0) text += "." + std::string(static_cast<size_t>(places - 1), digit) + last;
                    expect_same_parse(text);
                    expect_same_parse("-" + text + " ");
                    expect_same_parse("00" + text + "e-7");
                    if (HasFatalFailure()) return;
                }
}

static void expect_same_field(const t_DECIMAL &x, int length, int places)
{
    const auto got = std::make_unique<char[]>(static_cast<size_t>(std::max(length, 0)));
    const auto expected = std::make_unique<char[]>(static_cast<size_t>(std::max(length, 0)));
    dectoasc(&x, got.get(), length, places);
    plain::dectoasc(&x, expected.get(), length, places);
    const std::string shown(got.get(), static_cast<size_t>(std::max(length, 0)));
    const std::string wanted(expected.get(), static_cast<size_t>(std::max(length, 0)));
    ASSERT_EQ(shown, wanted) << bytes(x) << " length " << length << " places " << places;
}

TEST(SameBytesOfText, records_become_fields)
{
    Draw draw;
    for (Rounds rounds(400000); rounds.more() && !HasFatalFailure();) {
        t_DECIMAL x = draw.one_in(8) ? broken(draw) : draw.record();
        if (draw.one_in(2)) x.dec_exp = static_cast<int16_t>(draw.between(-3, 9));
        const int length = draw.one_in(50) ? draw.between(-1, 300) : draw.between(0, 30);
        const int places = draw.one_in(2)    ? -1
                           : draw.one_in(50) ? draw.pick({INT_MAX, 151, 150, INT_MIN})
                                             : draw.below(20);
        expect_same_field(x, length, places);
    }
}

// Every count of digits with the point everywhere, in every length of field and every number of places.
TEST(SameBytesOfText, all_forms_become_fields)
{
    for (int count = 1; count <= DEC_DIGITS; count++)
        for (const int first : {1, 10, 99})
            for (const int last : {5, 10, 99})
                for (int exp = -1; exp <= 9; exp++)
                    for (int length = 1; length <= 36; length += length < 22 ? 1 : 2)
                        for (int places = -1; places <= 17 && !HasFatalFailure(); places++) {
                            t_DECIMAL x = record(exp, (count + places) % 2, {11, 22, 33, 44, 55, 66, 77, 88});
                            x.dec_ndgts = static_cast<int8_t>(count);
                            x.dec_dgts[count - 1] = static_cast<uint8_t>(last);
                            x.dec_dgts[0] = static_cast<uint8_t>(first);
                            expect_same_field(x, length, places);
                        }
}

TEST(SameBytesOfText, records_become_digit_strings)
{
    Draw draw;
    for (Rounds rounds(300000); rounds.more() && !HasFatalFailure();) {
        t_DECIMAL x = draw.one_in(8) ? broken(draw) : draw.record();
        if (draw.one_in(2)) x.dec_exp = static_cast<int16_t>(draw.between(-3, 9));
        const int count = draw.one_in(20) ? draw.pick({INT_MAX, 151, 152, INT_MIN, -1}) : draw.below(20);
        const int mode = draw.below(2);
        int decpt = -77, sign = -77, expected_decpt = -77, expected_sign = -77;
        const std::string got = mode == 0 ? dececvt(&x, count, &decpt, &sign) : decfcvt(&x, count, &decpt, &sign);
        const std::string expected = plain::decefcvt(&x, count, &expected_decpt, &expected_sign, mode);
        ASSERT_TRUE(got == expected && decpt == expected_decpt && sign == expected_sign)
            << bytes(x) << " count " << count << " mode " << mode << " gives " << got << " not " << expected;
    }
}
