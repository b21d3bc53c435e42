// SPDX-License-Identifier: MIT
//
// Counted strings. Every destination is in a buffer whose other bytes are watched.
#include "ka/kastring.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace {

// A string with room for maxlen bytes in the middle of a guarded buffer.
struct Guarded {
    explicit Guarded(int maxlen, const std::string &text = "") : buffer(16 + static_cast<size_t>(maxlen) + 16, '#')
    {
        str = {maxlen, static_cast<int32_t>(text.size()), &buffer[16]};
        std::memcpy(str.data, text.data(), text.size());
        before = buffer;
    }
    std::string text() const { return {str.data, static_cast<size_t>(str.len)}; }
    // Whether nothing but the first count bytes of the string's room has changed since it was made.
    bool only_changed(size_t count) const
    {
        return buffer.compare(0, 16, before, 0, 16) == 0 &&
               buffer.compare(16 + count, std::string::npos, before, 16 + count, std::string::npos) == 0;
    }
    bool unchanged() const { return buffer == before; }

    std::string buffer, before;
    KaStr str;
};

KaStr view(std::string &text)
{
    return {static_cast<int32_t>(text.size()), static_cast<int32_t>(text.size()), text.data()};
}

int32_t compare(std::string a, std::string b)
{
    const KaStr left = view(a), right = view(b);
    return KaStrcmp(&left, &right);
}

} // namespace

TEST(KaStrlen, gives_the_current_length_and_the_room)
{
    const Guarded s(10, "abc");
    EXPECT_EQ(KaStrlen(&s.str), 3);
    EXPECT_EQ(KaMaxStrlen(&s.str), 10);
}

TEST(KaStrcat, appends_and_adds_the_lengths)
{
    Guarded dst(8, "abc");
    const Guarded src(5, "de");
    EXPECT_EQ(KaStrcat(&dst.str, &src.str), KASTR_OK);
    EXPECT_EQ(dst.text(), "abcde");
    EXPECT_EQ(dst.str.maxlen, 8);
    EXPECT_TRUE(dst.only_changed(5));
}

TEST(KaStrcat, fills_the_room_to_the_last_byte)
{
    Guarded dst(5, "abc");
    const Guarded src(2, "de");
    EXPECT_EQ(KaStrcat(&dst.str, &src.str), KASTR_OK);
    EXPECT_EQ(dst.text(), "abcde");
    EXPECT_TRUE(dst.only_changed(5));
}

TEST(KaStrcat, answers_18_and_changes_nothing_when_one_byte_is_missing)
{
    Guarded dst(4, "abc");
    const Guarded src(2, "de");
    EXPECT_EQ(KaStrcat(&dst.str, &src.str), 18);
    EXPECT_EQ(dst.str.len, 3);
    EXPECT_TRUE(dst.unchanged());
}

TEST(KaStrcat, appends_a_string_to_itself)
{
    Guarded s(6, "abc");
    EXPECT_EQ(KaStrcat(&s.str, &s.str), KASTR_OK);
    EXPECT_EQ(s.text(), "abcabc");
    Guarded tight(5, "abc");
    EXPECT_EQ(KaStrcat(&tight.str, &tight.str), 18);
    EXPECT_TRUE(tight.unchanged());
}

TEST(KaStrcat, refuses_a_sum_of_lengths_beyond_32_bits)
{
    Guarded dst(4, "abc");
    const KaStr huge = {INT32_MAX, INT32_MAX, dst.str.data};
    EXPECT_EQ(KaStrcat(&dst.str, &huge), 18);
    EXPECT_TRUE(dst.unchanged());
}

TEST(KaStrcpy, replaces_the_characters)
{
    Guarded dst(4, "abcd");
    const Guarded src(9, "xy");
    EXPECT_EQ(KaStrcpy(&dst.str, &src.str), KASTR_OK);
    EXPECT_EQ(dst.text(), "xy");
    EXPECT_TRUE(dst.only_changed(2));
}

TEST(KaStrcpy, takes_exactly_what_fits)
{
    Guarded dst(3, "a");
    const Guarded src(9, "xyz");
    EXPECT_EQ(KaStrcpy(&dst.str, &src.str), KASTR_OK);
    EXPECT_EQ(dst.text(), "xyz");
    EXPECT_TRUE(dst.only_changed(3));
}

TEST(KaStrcpy, answers_18_and_changes_nothing_for_four_characters_in_a_room_of_three)
{
    Guarded dst(3, "ab");
    const Guarded src(4, "wxyz");
    EXPECT_EQ(KaStrcpy(&dst.str, &src.str), 18);
    EXPECT_EQ(dst.str.len, 2);
    EXPECT_TRUE(dst.unchanged());
}

TEST(KaStrcpy, copies_zero_bytes)
{
    Guarded dst(3);
    std::string text("a\0b", 3);
    const KaStr src = view(text);
    EXPECT_EQ(KaStrcpy(&dst.str, &src), KASTR_OK);
    EXPECT_EQ(dst.text(), text);
}

TEST(KaStrcmp, a_shorter_string_sorts_before_its_extension)
{
    EXPECT_EQ(compare("AB", "ABC"), -1);
    EXPECT_EQ(compare("ABC", "AB"), 1);
    EXPECT_EQ(compare("ABC", "ABC"), 0);
    EXPECT_EQ(compare("", ""), 0);
    EXPECT_EQ(compare("", "ABC"), -3);
}

TEST(KaStrcmp, the_first_difference_decides)
{
    EXPECT_LT(compare("AB", "ACXYZ"), 0);
    EXPECT_GT(compare("AC", "ABXYZ"), 0);
}

// The C library's comparison gives any number of that sign, another one in each of its forms for processors.
TEST(KaStrcmp, a_difference_is_1_on_every_machine)
{
    for (const size_t common : {size_t{0}, size_t{1}, size_t{7}, size_t{15}, size_t{40}, size_t{300}}) {
        const std::string start(common, 'x');
        EXPECT_EQ(compare(start + "Bcd", start + "Zcd"), -1) << common;
        EXPECT_EQ(compare(start + "\xff", start + "a"), 1) << common;
    }
}

TEST(KaStrcmp, bytes_are_compared_unsigned)
{
    EXPECT_GT(compare("\xff", "a"), 0);
    EXPECT_LT(compare("a", "\x80"), 0);
}

TEST(KaStrcmp, zero_bytes_do_not_end_a_string)
{
    EXPECT_LT(compare(std::string("a\0b", 3), std::string("a\0c", 3)), 0);
}

TEST(KaSubstr, cuts_a_view_out_of_the_string)
{
    std::string text = "HELLO";
    const KaStr s = view(text);
    const KaStr *part = KaSubstr(&s, 2, 3);
    ASSERT_NE(part, nullptr);
    EXPECT_EQ(std::string(part->data, static_cast<size_t>(part->len)), "ELL");
    EXPECT_EQ(part->maxlen, 3);
    EXPECT_EQ(part->data, text.data() + 1);
}

TEST(KaSubstr, ends_where_the_string_ends)
{
    std::string text = "HELLO";
    const KaStr s = view(text);
    const KaStr *part = KaSubstr(&s, 4, 10);
    ASSERT_NE(part, nullptr);
    EXPECT_EQ(std::string(part->data, static_cast<size_t>(part->len)), "LO");
    EXPECT_EQ(part->maxlen, 2);
    part = KaSubstr(&s, 1, INT32_MAX);
    ASSERT_NE(part, nullptr);
    EXPECT_EQ(part->len, 5);
}

TEST(KaSubstr, length_zero_gives_an_empty_record)
{
    std::string text = "HELLO";
    const KaStr s = view(text);
    const KaStr *part = KaSubstr(&s, 5, 0);
    ASSERT_NE(part, nullptr);
    EXPECT_EQ(part->len, 0);
    EXPECT_EQ(part->maxlen, 0);
    EXPECT_EQ(part->data, text.data() + 4);
}

TEST(KaSubstr, bad_positions_and_lengths_give_null)
{
    std::string text = "HELLO";
    const KaStr s = view(text);
    EXPECT_EQ(KaSubstr(&s, 6, 1), nullptr);
    EXPECT_EQ(KaSubstr(&s, 0, 1), nullptr);
    EXPECT_EQ(KaSubstr(&s, -1, 1), nullptr);
    EXPECT_EQ(KaSubstr(&s, 2, -1), nullptr);
    EXPECT_EQ(KaSubstr(&s, INT32_MIN, INT32_MIN), nullptr);
}

TEST(KaSubstr, an_empty_string_has_no_part)
{
    std::string text;
    const KaStr s = view(text);
    for (int32_t pos = -1; pos <= 2; pos++) {
        EXPECT_EQ(KaSubstr(&s, pos, 0), nullptr) << pos;
    }
}

TEST(KaSubstr, can_be_overwritten_in_place_but_not_extended)
{
    std::string text = "HELLO";
    const KaStr s = view(text);
    KaStr part = *KaSubstr(&s, 2, 3);
    EXPECT_EQ(str2KaStr("ipp", &part), KASTR_OK);
    EXPECT_EQ(text, "HippO");
    EXPECT_EQ(str2KaStr("ippo", &part), 18);
    EXPECT_EQ(text, "HippO");
}

TEST(KaSubstr, a_part_can_be_copied_over_its_own_string)
{
    std::string text = "HELLO";
    KaStr s = view(text);
    EXPECT_EQ(KaStrcpy(&s, KaSubstr(&s, 2, 4)), KASTR_OK);
    EXPECT_EQ(std::string(s.data, static_cast<size_t>(s.len)), "ELLO");
}

TEST(KaSubstr, has_one_record_and_a_null_result_leaves_it)
{
    std::string text = "HELLO";
    const KaStr s = view(text);
    const KaStr *first = KaSubstr(&s, 1, 1);
    EXPECT_EQ(KaSubstr(&s, 3, 2), first);
    EXPECT_EQ(first->len, 2);
    EXPECT_EQ(KaSubstr(&s, 9, 2), nullptr);
    EXPECT_EQ(first->len, 2);
}

TEST(KaStr2str, copies_and_terminates)
{
    const Guarded s(9, "abc");
    char buf[6] = "~~~~~";
    EXPECT_EQ(KaStr2str(&s.str, buf), 3);
    EXPECT_EQ(std::memcmp(buf, "abc\0~", 5), 0);
}

TEST(KaStr2str, stops_at_a_zero_byte)
{
    std::string text("ab\0d", 4);
    const KaStr s = view(text);
    char buf[6] = "~~~~~";
    EXPECT_EQ(KaStr2str(&s, buf), 2);
    EXPECT_EQ(std::memcmp(buf, "ab\0~~", 5), 0);
}

TEST(KaStr2str, a_length_of_zero_or_less_stores_the_terminator_only)
{
    char text[] = "abc";
    for (const int32_t len : {0, -1, INT32_MIN}) {
        const KaStr s = {3, len, text};
        char buf[3] = "~~";
        EXPECT_EQ(KaStr2str(&s, buf), 0) << len;
        EXPECT_EQ(std::memcmp(buf, "\0~", 2), 0) << len;
    }
}

TEST(str2KaStr, copies_without_the_terminator)
{
    Guarded dst(3, "zzz");
    EXPECT_EQ(str2KaStr("ab", &dst.str), KASTR_OK);
    EXPECT_EQ(dst.text(), "ab");
    EXPECT_TRUE(dst.only_changed(2));
    EXPECT_EQ(str2KaStr("abc", &dst.str), KASTR_OK);
    EXPECT_EQ(dst.text(), "abc");
}

TEST(str2KaStr, an_empty_text_makes_an_empty_string)
{
    Guarded dst(3, "abc");
    EXPECT_EQ(str2KaStr("", &dst.str), KASTR_OK);
    EXPECT_EQ(dst.str.len, 0);
    EXPECT_TRUE(dst.unchanged());
}

TEST(str2KaStr, answers_18_and_changes_nothing_when_the_text_does_not_fit)
{
    Guarded dst(3, "ab");
    EXPECT_EQ(str2KaStr("wxyz", &dst.str), 18);
    EXPECT_EQ(dst.str.len, 2);
    EXPECT_TRUE(dst.unchanged());
}

TEST(KaMkstr, makes_an_empty_string_with_room)
{
    KaStr *made = KaMkstr(10);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->maxlen, 10);
    EXPECT_EQ(made->len, 0);
    ASSERT_NE(made->data, nullptr);
    std::memset(made->data, 'x', 10);
    std::free(made->data);
}

TEST(KaMkstr, has_one_record_for_all_strings_and_keeps_their_characters)
{
    KaStr *made = KaMkstr(4);
    ASSERT_NE(made, nullptr);
    KaStr first = *made;
    EXPECT_EQ(str2KaStr("once", &first), KASTR_OK);
    ASSERT_EQ(KaMkstr(8), made);
    EXPECT_EQ(made->maxlen, 8);
    EXPECT_NE(made->data, first.data);
    EXPECT_EQ(std::memcmp(first.data, "once", 4), 0);
    std::free(first.data);
    std::free(made->data);
}

TEST(KaMkstr, without_memory_gives_null_and_keeps_the_other_fields)
{
    KaStr *made = KaMkstr(5);
    ASSERT_NE(made, nullptr);
    made->len = 2;
    std::free(made->data);
    EXPECT_EQ(KaMkstr(-1), nullptr);
    EXPECT_EQ(made->data, nullptr);
    EXPECT_EQ(made->maxlen, 5);
    EXPECT_EQ(made->len, 2);
}

TEST(KaStr, the_record_of_substrings_is_not_that_of_new_strings)
{
    KaStr *made = KaMkstr(3);
    ASSERT_NE(made, nullptr);
    made->len = 3;
    EXPECT_NE(KaSubstr(made, 1, 1), made);
    EXPECT_EQ(made->len, 3);
    std::free(made->data);
}
