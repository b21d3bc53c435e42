// SPDX-License-Identifier: MIT
//
// A number of any length in text becomes the nearest REAL.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <optional>
#include <sys/mman.h>
#include <unistd.h>

#include "ka/caller.h"
#include "model/nearest.h"
#include "model/notation.h"

using namespace model;

namespace {

struct Answer {
    int32_t status;
    t_DECIMAL value;
    int32_t exact;
};

Answer read(std::string_view text)
{
    Answer answer = {-1, {}, -1};
    answer.status = ka_real_read(text.data(), static_cast<int32_t>(text.size()), &answer.value, &answer.exact);
    return answer;
}

std::string read_as(std::string_view text)
{
    const Answer answer = read(text);
    return show(answer.value) + (answer.exact == 1 ? "" : answer.exact == 0 ? " rounded" : " ?");
}

std::string text_of(const Nearest &real)
{
    if (!real.in_range) return "null rounded";
    return show(real.record) + (real.exact ? "" : " rounded");
}

} // namespace

TEST(RealRead, gives_the_nearest_real_or_an_error)
{
    Draw draw;
    for (Rounds rounds(250000); rounds.more();) {
        const std::string text = draw_number(draw);
        const Nearest expected = nearest(text);
        const Answer got = read(text);
        ASSERT_EQ(got.status, expected.in_range ? KA_DONE : KA_ARGUMENT) << text << " in round " << rounds.number();
        ASSERT_TRUE(same(got.value, expected.in_range ? expected.record : null_record()) &&
                    got.exact == (expected.in_range && expected.exact))
            << text << "\n  expected: " << text_of(expected) << "\n  got:      " << read_as(text) << "\n  in round "
            << rounds.number();
    }
}

// Most numbers have up to 15 decimals and no exponent, and are read in few steps.
TEST(RealRead, gives_the_bytes_of_the_decimal_library)
{
    Draw draw;
    for (Rounds rounds(200000); rounds.more();) {
        std::string text = draw.one_in(3) ? draw.one_in(2) ? "-" : "+" : "";
        const int count = draw.between(1, 17);
        const int point = draw.between(0, draw.one_in(3) ? count : 30);
        for (int i = 0; i < count; i++) {
            if (i == point) text += '.';
            text += static_cast<char>('0' + draw.below(draw.one_in(3) ? 1 : 10));
        }
        if (point == count) text += '.';
        t_DECIMAL expected;
        ASSERT_EQ(deccvasc(text.c_str(), static_cast<int>(text.size()), &expected), DEC_OK) << text;
        const Answer got = read(text);
        ASSERT_EQ(got.status, KA_DONE) << text;
        ASSERT_EQ(memcmp(&got.value, &expected, sizeof expected), 0) << text << " in round " << rounds.number();
    }
}

namespace {

// Up to 16 decimals, a sign, a point: one character at a time. Nothing for any other text.
std::optional<t_DECIMAL> read_plainly(std::string_view text)
{
    const bool negative = !text.empty() && text[0] == '-';
    if (negative || (!text.empty() && text[0] == '+')) text.remove_prefix(1);
    std::string before, behind;
    bool point = false;
    for (const char c : text) {
        if (c == '.' && !point)
            point = true;
        else if (c >= '0' && c <= '9')
            (point ? behind : before) += c;
        else
            return {};
    }
    if (before.empty() && behind.empty()) return {};
    if (before.size() % 2 != 0) before.insert(0, 1, '0');
    if (behind.size() % 2 != 0) behind += '0';
    const std::string all = before + behind;
    t_DECIMAL value = {0, static_cast<uint8_t>(negative ? DEC_NEGATIVE : DEC_POSITIVE), 0, {}};
    const size_t first = all.find_first_not_of('0') / 2;
    const size_t last = all.find_last_not_of('0') / 2;
    if (all.find_first_not_of('0') == std::string::npos) return value;
    if (last - first >= DEC_DIGITS) return {};
    value.dec_exp = static_cast<int16_t>(static_cast<int>(before.size() / 2) - static_cast<int>(first));
    value.dec_ndgts = static_cast<int8_t>(last - first + 1);
    for (size_t i = first; i <= last; i++)
        value.dec_dgts[i - first] = static_cast<uint8_t>((all[2 * i] - '0') * 10 + all[2 * i + 1] - '0');
    return value;
}

// A page between two that cannot be read.
class LonelyPage {
public:
    LonelyPage()
    {
        void *pages = mmap(nullptr, 3 * size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        page_ = static_cast<char *>(pages) + size_;
        if (pages == MAP_FAILED || mprotect(pages, size_, PROT_NONE) != 0 ||
            mprotect(page_ + size_, size_, PROT_NONE) != 0)
            std::abort();
    }
    ~LonelyPage() { munmap(page_ - size_, 3 * size_); }
    LonelyPage(const LonelyPage &) = delete;
    LonelyPage &operator=(const LonelyPage &) = delete;

    std::string_view at_start(std::string_view text) { return put(text, page_); }
    std::string_view at_end(std::string_view text) { return put(text, page_ + size_ - text.size()); }

private:
    std::string_view put(std::string_view text, char *place)
    {
        std::copy(text.begin(), text.end(), place);
        return {place, text.size()};
    }
    size_t size_ = static_cast<size_t>(getpagesize());
    char *page_;
};

void compare_with_plain(LonelyPage &page, std::string_view text)
{
    const std::optional<t_DECIMAL> expected = read_plainly(text);
    if (!expected) return;
    for (const std::string_view placed : {page.at_start(text), page.at_end(text)}) {
        const Answer got = read(placed);
        ASSERT_TRUE(got.status == KA_DONE && got.exact == 1) << '"' << text << '"';
        ASSERT_EQ(memcmp(&got.value, &*expected, sizeof got.value), 0)
            << '"' << text << "\"\n  expected: " << show_raw(*expected) << "\n  got:      " << show_raw(got.value);
        t_DECIMAL again = null_record();
        ASSERT_EQ(ka_real_from_text(placed.data(), static_cast<int32_t>(placed.size()), &again), KA_DONE);
        ASSERT_EQ(memcmp(&again, &got.value, sizeof again), 0) << '"' << text << '"';
    }
}

} // namespace

TEST(RealRead, every_short_text_in_few_steps_is_what_it_is_plainly)
{
    static constexpr std::string_view characters = "+-.0159/:";
    LonelyPage page;
    for (size_t length = 1; length <= 5; length++) {
        size_t count = 1;
        for (size_t i = 0; i < length; i++)
            count *= characters.size();
        for (size_t number = 0; number < count; number++) {
            std::string text;
            for (size_t rest = number; text.size() < length; rest /= characters.size())
                text += characters[rest % characters.size()];
            ASSERT_NO_FATAL_FAILURE(compare_with_plain(page, text));
        }
    }
}

// Sixteen characters are read at once, seventeen are not.
TEST(RealRead, every_place_of_the_point_and_of_zeros_in_few_steps_is_what_it_is_plainly)
{
    LonelyPage page;
    for (const std::string sign : {"", "+", "-"})
        for (size_t length = 1; length <= 18; length++)
            for (size_t point = 0; point <= length; point++)
                for (size_t zeros = 0; zeros <= length; zeros++)
                    for (size_t end = zeros; end <= length; end++) {
                        std::string text = std::string("987654321987654321").substr(0, length);
                        std::fill(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(zeros), '0');
                        std::fill(text.begin() + static_cast<std::ptrdiff_t>(end), text.end(), '0');
                        if (point < length) text[point] = '.';
                        ASSERT_NO_FATAL_FAILURE(compare_with_plain(page, sign + text));
                    }
}

// Any one character but that of an exponent among decimals.
TEST(RealRead, a_character_that_is_no_decimal_is_refused_everywhere)
{
    for (size_t length = 1; length <= 17; length++)
        for (size_t place = 0; place < length; place++)
            for (int c = 0; c < 256; c++) {
                if (c == 'e' || c == 'E') continue;
                const bool allowed = (c >= '0' && c <= '9') || (c == '.' && length > 1) ||
                                     ((c == '+' || c == '-') && place == 0 && length > 1);
                std::string text(length, '5');
                text[place] = static_cast<char>(c);
                ASSERT_EQ(read(text).status, allowed ? KA_DONE : KA_ARGUMENT) << '"' << text << '"';
            }
}

TEST(RealRead, decimals_past_the_eighteenth_count)
{
    EXPECT_EQ(read_as("123456789012345678"), "9:+:12,34,56,78,90,12,34,57 rounded");
    EXPECT_EQ(read_as("1234567890123456789"), "10:+:1,23,45,67,89,1,23,46 rounded");
    EXPECT_EQ(read_as("-12345678901234567890.5"), "10:-:12,34,56,78,90,12,34,57 rounded");
    EXPECT_EQ(read_as("100000000000000000000"), "11:+:1");
    EXPECT_EQ(read_as("1" + std::string(2000, '0') + "e-999"), "null rounded");
    EXPECT_EQ(read_as("1" + std::string(1090, '0') + "e-999"), "46:+:10");
}

// The ninth base-100 digit decides, whatever follows.
TEST(RealRead, ties_go_away_from_zero)
{
    EXPECT_EQ(read_as("0.12345678901234565"), "0:+:12,34,56,78,90,12,34,57 rounded");
    EXPECT_EQ(read_as("-0.12345678901234565"), "0:-:12,34,56,78,90,12,34,57 rounded");
    EXPECT_EQ(read_as("0.12345678901234564999999999999999999999"), "0:+:12,34,56,78,90,12,34,56 rounded");
    EXPECT_EQ(read_as("9.9999999999999950"), "1:+:10 rounded");
    EXPECT_EQ(read_as("9.999999999999994999999999999999999"), "1:+:9,99,99,99,99,99,99,99 rounded");
}

TEST(RealRead, tells_rounding_from_exactness)
{
    for (const char *exact : {"0", "-0.000", "1", "100", "0.1", "1234567890123456", "1234567890123456.000000000000",
                              "0.999999999999999900", "12345678901234.56e-20"})
        EXPECT_EQ(read(exact).exact, 1) << exact;
    // The same count of decimals, but the point is between the two of a pair.
    EXPECT_EQ(read("9.999999999999999").exact, 0);
    EXPECT_EQ(read("99.99999999999999").exact, 1);
    EXPECT_EQ(read("1.0000000000000000000000000000000000000000000001").exact, 0);
    EXPECT_EQ(read("nonsense").exact, 0);
}

TEST(RealRead, what_is_too_small_or_too_large_is_refused)
{
    EXPECT_EQ(read_as("1e-130"), "-64:+:1");
    EXPECT_EQ(read_as("9.9e-131"), "null rounded");
    EXPECT_EQ(read_as("99999999999999990e109"), "63:+:99,99,99,99,99,99,99,99");
    EXPECT_EQ(read_as("1e126"), "null rounded");
    EXPECT_EQ(read_as("1e1000"), "null rounded");
    EXPECT_EQ(read_as("123456789012345678901234567890e999"), "null rounded");
    EXPECT_EQ(read_as("1234567890123456789e4294967296"), "null rounded");
    EXPECT_EQ(read_as("1234567890123456789e-4294967296"), "null rounded");
    std::string longest(200000, '9');
    longest.append("e999");
    EXPECT_EQ(read_as(longest), "null rounded");
}

TEST(RealRead, exact_may_be_null)
{
    t_DECIMAL value;
    EXPECT_EQ(ka_real_read("2.50", 4, &value, nullptr), KA_DONE);
    EXPECT_EQ(show(value), "1:+:2,50");
    EXPECT_EQ(ka_real_from_text("12345678901234567890", 20, &value), KA_DONE);
    EXPECT_EQ(show(value), "10:+:12,34,56,78,90,12,34,57");
}
