// SPDX-License-Identifier: MIT
//
// REALs that functions get exactly, and that come back with 15 decimals.
#include <gtest/gtest.h>

#include <random>

#include "ka/real.h"
#include "module/hosts_of.h"

namespace {

class Exact : public ModuleTest {
protected:
    template <typename... Arguments>
    std::string text(const char *function, const Arguments &...arguments)
    {
        std::string text;
        const std::int32_t code = host.call(function, arguments..., ka::ref(text, 200));
        return code == 0 ? text : "code " + std::to_string(code);
    }
    std::string computed(const char *a, const char *operation, const char *b)
    {
        return text("compute", ka::Decimal(a), operation, ka::Decimal(b));
    }
    ka::Host host{module_path("exact"), in_layout()};
};
IN_BOTH_LAYOUTS(Exact);

// The significant decimals of a REAL without zeros at either end, and where its point is: 0.ddd * 10^point.
struct Plain {
    bool negative;
    std::string decimals;
    int point;
    bool operator==(const Plain &) const = default;
};

Plain plain(const t_DECIMAL &x)
{
    Plain found = {x.dec_pos == DEC_NEGATIVE, "", 2 * x.dec_exp};
    for (int i = 0; i < x.dec_ndgts; i++) {
        found.decimals += static_cast<char>('0' + x.dec_dgts[i] / 10);
        found.decimals += static_cast<char>('0' + x.dec_dgts[i] % 10);
    }
    if (found.decimals[0] == '0') {
        found.decimals.erase(0, 1);
        found.point--;
    }
    found.decimals.erase(found.decimals.find_last_not_of('0') + 1);
    return found;
}

// Rounded to 15 decimals, half away from zero.
Plain rounded(Plain x)
{
    if (x.decimals.size() <= 15) return x;
    const bool up = x.decimals[15] >= '5';
    x.decimals.resize(15);
    size_t i = x.decimals.size();
    while (up && i > 0 && x.decimals[i - 1] == '9')
        i--;
    if (up && i == 0) return {x.negative, "1", x.point + 1};
    x.decimals.resize(i);
    if (up) x.decimals[i - 1]++;
    x.decimals.erase(x.decimals.find_last_not_of('0') + 1);
    return x;
}

// Half of them amounts, the others of any size.
t_DECIMAL random_real(std::mt19937_64 &draw)
{
    const auto below = [&](std::uint64_t end) { return static_cast<int>(draw() % end); };
    t_DECIMAL x = {};
    x.dec_pos = below(2) == 0 ? DEC_NEGATIVE : DEC_POSITIVE;
    x.dec_ndgts = static_cast<int8_t>(below(4) == 0 ? 1 + below(8) : 8);
    x.dec_exp = static_cast<int16_t>(below(2) == 0 ? below(9) - 1 : below(125) - 62);
    for (int i = 0; i < x.dec_ndgts; i++)
        x.dec_dgts[i] = static_cast<uint8_t>(below(8) == 0 ? 99 : below(100));
    uint8_t &first = x.dec_dgts[0], &last = x.dec_dgts[x.dec_ndgts - 1];
    if (first == 0) first = 5;
    if (last == 0) last = 50;
    return x;
}

void expect_fifteen(const t_DECIMAL &before, const t_DECIMAL &after)
{
    EXPECT_EQ(plain(after), rounded(plain(before)))
        << ka::Decimal(before).text << " became " << ka::Decimal(after).text;
}

} // namespace

TEST(ExactReals, a_million_untouched_come_back_with_fifteen_decimals)
{
    ka::Host host(module_path("exact"));
    std::mt19937_64 draw(20261123);
    constexpr std::int32_t at_once = 50;
    std::array<t_DECIMAL, at_once> before, after;
    for (int round = 0; round < 1000000 / at_once && !testing::Test::HasFailure(); round++) {
        host.begin("untouched");
        for (size_t i = 0; i < at_once; i++) {
            before[i] = after[i] = random_real(draw);
            host.add(ka::ref(after[i]));
        }
        ASSERT_EQ(host.send(), 0);
        for (size_t i = 0; i < at_once; i++) {
            host.take(static_cast<std::int32_t>(i) + 1, after[i]);
            expect_fifteen(before[i], after[i]);
        }
    }
}

TEST_P(Exact, untouched_elements_come_back_with_fifteen_decimals)
{
    std::mt19937_64 draw(20261124);
    for (int round = 0; round < 20 && !HasFailure(); round++) {
        std::vector<t_DECIMAL> before(5000), after;
        for (t_DECIMAL &each : before)
            each = random_real(draw);
        after = before;
        ASSERT_EQ(host.call("untouched_array", ka::ref(after)), 0);
        for (size_t i = 0; i < before.size(); i++)
            expect_fifteen(before[i], after[i]);
    }
    std::vector<t_DECIMAL> none;
    EXPECT_EQ(host.call("untouched_array", ka::ref(none)), 0);
}

// Rounded to 15 decimals it would leave the range of REALs.
TEST_P(Exact, the_largest_real_comes_back_as_the_largest_of_an_operation)
{
    t_DECIMAL nines = {DEC_EXP_MAX, DEC_POSITIVE, DEC_DIGITS, {99, 99, 99, 99, 99, 99, 99, 99}};
    EXPECT_EQ(host.call("add_to", ka::ref(nines), 0), 0);
    EXPECT_EQ(ka::Decimal(nines).text, "9.9999999999999E+125");
}

TEST_P(Exact, the_last_cent_comes_back)
{
    ka::Decimal sum("9999999999999.98");
    EXPECT_EQ(host.call("add_to", ka::ref(sum), ka::Decimal("0.01")), 0);
    EXPECT_EQ(sum.text, "9999999999999.99");
    EXPECT_EQ(host.call("add_to", ka::ref(sum), 1), 0);
    EXPECT_EQ(sum.text, "10000000000001"); // 16 decimals become 15
    std::vector<ka::Decimal> sums = {ka::Decimal("0.1"), ka::Decimal("-9999999999999.98")};
    EXPECT_EQ(host.call("add_to_each", ka::ref(sums), ka::Decimal("-0.01")), 0);
    EXPECT_EQ(sums[0].text, "0.09");
    EXPECT_EQ(sums[1].text, "-9999999999999.99");
    EXPECT_EQ(host.call("interest", ka::Decimal("1000000000000.01"), 5, ka::ref(sum)), 0);
    EXPECT_EQ(sum.text, "50000000000");
    EXPECT_EQ(host.call("total", sums, ka::ref(sum)), 0);
    EXPECT_EQ(sum.text, "-9999999999999.9");
}

TEST_P(Exact, sixteen_decimals_arrive_and_go_back_as_text)
{
    EXPECT_EQ(text("text", ka::Decimal("12345678901234.56")), "12345678901234.56");
    EXPECT_EQ(text("text", INT32_MIN), "-2147483648");
    EXPECT_EQ(text("text_to", ka::Decimal("12345678901234.5"), 2), "12345678901234.50");
    EXPECT_EQ(text("text_to", ka::Decimal("1e125"), 0), "1" + std::string(125, '0'));
    EXPECT_EQ(text("read", "12345678901234567890"), "1.234567890123457E+19");
    EXPECT_EQ(text("read", "two"), "code " + std::to_string(REAL_NOT_NUMBER));
    EXPECT_EQ(text("read", ""), "code " + std::to_string(REAL_NOT_NUMBER));
}

TEST_P(Exact, operators_compute_as_the_operations_do)
{
    EXPECT_EQ(computed("0.1", "+", "0.2"), "0.3");
    EXPECT_EQ(computed("0.1", "-", "0.2"), "-0.1");
    EXPECT_EQ(computed("1.1", "*", "-1.1"), "-1.21");
    EXPECT_EQ(computed("2", "/", "3"), "0.6666666666666666");
    EXPECT_EQ(computed("2.345", "round", "2"), "2.35");
    EXPECT_EQ(computed("2.349", "trunc", "2"), "2.34");
    EXPECT_EQ(computed("5", "each", "7"), "-5");
    EXPECT_EQ(computed("1", "/", "0"), "code " + std::to_string(REAL_DIVISION_BY_ZERO));
    EXPECT_EQ(computed("1e100", "*", "1e100"), "code " + std::to_string(REAL_RANGE));
    EXPECT_EQ(host.call("compare", 1, ka::Decimal("1.5")), -100);
    EXPECT_EQ(host.call("compare", 1, ka::Decimal("1.0")), 0);
    EXPECT_EQ(host.call("compare", ka::Decimal("0.2"), ka::Decimal("0.1")), 100);
    EXPECT_EQ(host.call("exact_rest", ka::Decimal("12345678901234.5"), ka::Decimal("0.06"), 0), 17);
}

TEST_P(Exact, status_can_be_looked_at)
{
    EXPECT_EQ(host.call("look_at_status", 1, 4, "0.2"), 1);
    EXPECT_EQ(host.call("look_at_status", 1, 0, "no"), REAL_DIVISION_BY_ZERO * 1000 + REAL_NOT_NUMBER * 10 + 1);
}
