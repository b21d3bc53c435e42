// SPDX-License-Identifier: MIT
//
// Strings of the caller's, changed where they lie.
#include <gtest/gtest.h>

#include "ka/kastring.h"
#include "module/hosts_of.h"

namespace {

class Strings : public ModuleTest {
protected:
    // The string after the call, or the return code.
    template <typename... Arguments>
    std::string after(const char *function, std::string text, std::int32_t room, const Arguments &...arguments)
    {
        const std::string before = text;
        const std::int32_t code = host.call(function, ka::ref(text, room), arguments...);
        if (code == 0) return text;
        EXPECT_EQ(text, before);
        return std::to_string(code);
    }
    ka::Host host{module_path("block"), in_layout()};
};
IN_BOTH_LAYOUTS(Strings);

} // namespace

TEST_P(Strings, are_assigned_and_appended_up_to_their_room)
{
    const std::string zeros("a\0b\0", 4);
    EXPECT_EQ(after("assign", "before", 8, "text"), "text");
    EXPECT_EQ(after("assign", "before", 8, ""), "");
    EXPECT_EQ(after("assign", "before", 8, zeros), zeros);
    EXPECT_EQ(after("assign", "before", 8, "12345678"), "12345678");
    EXPECT_EQ(after("assign", "before", 8, "123456789"), "18");
    EXPECT_EQ(after("append", "be", 4, "fo"), "befo");
    EXPECT_EQ(after("append", zeros, 8, zeros), zeros + zeros);
    EXPECT_EQ(after("append", "be", 4, "for"), "18");
    EXPECT_EQ(after("spell", "be", 5), "abcde");
}

TEST_P(Strings, may_be_made_of_themselves)
{
    EXPECT_EQ(after("behead", "abcdef", 0), "bcdef");
    EXPECT_EQ(after("repeat", "abc", 6), "abcabc");
    EXPECT_EQ(after("repeat", "abc", 5), "18");
    EXPECT_EQ(after("shift", "abcd", 7), "abcdabc");
}

TEST_P(Strings, are_resized_with_zero_bytes)
{
    EXPECT_EQ(after("resize", "abc", 6, 5), std::string("abc\0\0", 5));
    EXPECT_EQ(after("resize", "abc", 6, 2), "ab");
    EXPECT_EQ(after("resize", "abc", 6, 7), "18");
    EXPECT_EQ(after("resize", "abc", 6, -1), "18");
    std::int32_t room = 0;
    EXPECT_EQ(host.call("room", ka::in("abc", 77), ka::ref(room)), 0);
    EXPECT_EQ(room, 77);
}

TEST_P(Strings, tell_whether_a_text_fits)
{
    EXPECT_EQ(after("try_to_assign", "before", 8, "12345678"), "12345678");
    EXPECT_EQ(after("try_to_assign", "before", 8, "123456789"), "1002");
}

TEST_P(Strings, compare_as_texts)
{
    EXPECT_EQ(host.call("compare", "b", "a"), 0);
    EXPECT_EQ(host.call("compare", "a", "ab"), 1004);
    EXPECT_EQ(host.call("compare", "a", "\xff"), 1004);
    EXPECT_EQ(host.call("compare", "same", "same"), 1003);
}

TEST_P(Strings, elements_that_do_not_fit_stay)
{
    EXPECT_EQ(host.call("assign", ka::in("x", 3), "four"), KASTR_NO_ROOM);
}

// A length that no caller should write is none.
TEST_P(Strings, negative_length_reads_as_empty)
{
    ka::Options options = in_layout();
    options.checking = KA_RAW;
    ka::Host unchecked(module_path("block"), options);
    std::string room("\xff\xff\xff\xff\x7f\x7f\x7f\x7f", 8);
    unchecked.begin("append");
    unchecked.add(ka::ref(room, 0));
    unchecked.add("x");
    ka_descriptor descriptor = unchecked.descriptor(1);
    descriptor.offset += 4;
    descriptor.maxlen = 4;
    unchecked.set_descriptor(1, descriptor);
    EXPECT_EQ(unchecked.send(), 0);
    unchecked.take(1, room);
    EXPECT_EQ(room, std::string("\1\0\0\0x\x7f\x7f\x7f", 8));
}
