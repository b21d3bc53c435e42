// SPDX-License-Identifier: MIT
//
// No exception leaves a function: it becomes a return code and a line on standard error.
#include <gtest/gtest.h>

#include <cstring>

#include "ka/kastring.h"
#include "ka/real.h"
#include "module/hosts_of.h"

namespace {

class Exceptions : public ModuleTest {
protected:
    static ka::Options with_output()
    {
        ka::Options options = in_layout();
        options.error_output = KA_STDERR_RING;
        options.reasons = KA_REASONS_ON;
        return options;
    }
    ka::Host host{module_path("failing"), with_output()};
    ka::Host handled{module_path("failing_handled"), with_output()};
    ka::Host without{module_path("without_exceptions"), with_output()};
};
IN_BOTH_LAYOUTS(Exceptions);

} // namespace

TEST_P(Exceptions, become_codes_by_their_type)
{
    EXPECT_EQ(host.call("fail", 1234, "why"), 1234);
    EXPECT_EQ(host.call("fail_with_own_code"), 77);
    EXPECT_EQ(host.call("overflow", "x"), KASTR_NO_ROOM);
    EXPECT_EQ(host.call("no_memory"), 1003);
    EXPECT_EQ(host.call("standard", "x"), 1001);
    EXPECT_EQ(host.call("unknown"), 1002);
    std::int32_t a = 5;
    EXPECT_EQ(host.call("result", -1, ka::ref(a)), 1001);
    EXPECT_EQ(a, 5);
    EXPECT_EQ(host.call("result", 1, ka::ref(a)), 0);
    EXPECT_EQ(a, 1);
    double q = 1;
    EXPECT_EQ(host.call("divide", 1, 0, ka::ref(q)), REAL_DIVISION_BY_ZERO);
}

TEST_P(Exceptions, say_why_on_one_line)
{
    host.call("fail", 1234, "the book is closed");
    host.call("standard", "two\nlines\x1b[31m");
    host.call("standard", std::string(2000, 'x'));
    host.call("unknown");
    EXPECT_EQ(host.error_output(), "ka: fail: the book is closed\nka: standard: two lines [31m\nka: standard: " +
                                       std::string(511, 'x') + "\nka: unknown: an exception of an unknown type\n");
}

TEST_P(Exceptions, are_the_reason_beside_the_code)
{
    EXPECT_EQ(host.call("fail", 1234, "the book is closed"), 1234);
    EXPECT_EQ(host.reason(), "the book is closed");
    EXPECT_EQ(host.call("fail_with_own_code"), 77);
    EXPECT_EQ(host.reason(), "seventy-seven");
    EXPECT_EQ(host.call("fail", 1234, std::string(2000, '\xff')), 1234);
    std::string shown;
    for (int i = 0; i < 511; i++)
        shown += "\\xff";
    EXPECT_EQ(host.reason(), shown);
    EXPECT_EQ(handled.call("standard", "x"), 2008);
    EXPECT_EQ(handled.reason(), "");
    EXPECT_EQ(without.call("both", 1, "x"), REAL_DIVISION_BY_ZERO);
    EXPECT_EQ(without.reason(), "a division of a REAL by zero");
}

TEST_P(Exceptions, leave_what_was_changed_before)
{
    std::int32_t a = 1;
    double b = 1;
    std::string c = "one";
    ka::Decimal d("9999999999999.98");
    EXPECT_EQ(host.call("change_and_fail", ka::ref(a), ka::ref(b), ka::ref(c, 9), ka::ref(d)), 1005);
    EXPECT_EQ(a, 7);
    EXPECT_EQ(b, 7.5);
    EXPECT_EQ(c, "seven");
    EXPECT_EQ(d.text, "9999999999999.99");
}

TEST_P(Exceptions, go_to_the_handler_of_the_module)
{
    EXPECT_EQ(handled.call("standard", "x"), 2008);
    EXPECT_EQ(handled.error_output(), "");
    EXPECT_EQ(handled.call("fail", 1234, "why"), 1234);
    EXPECT_EQ(handled.error_output(), "ka: fail: why\n");
}

// ---- The text in the scratch area --------------------------------------------------------------------------------

namespace {

struct Text { // ka::module_text
    char magic[8];
    std::int32_t code, length;
    char text[240];
};

constexpr std::size_t text_offset = 16;

Text text_of(const ka::Host &host)
{
    Text found;
    std::memcpy(&found, static_cast<const char *>(host.scratch().data) + text_offset, sizeof found);
    return found;
}

} // namespace

TEST_P(Exceptions, leave_their_text_where_the_module_says)
{
    ka::Host telling(module_path("failing_text"), with_output());
    ASSERT_GE(telling.scratch().size, 272);
    std::memset(telling.scratch().data, '?', 300);
    std::int32_t result = 0;
    EXPECT_EQ(telling.call("result", 1, ka::ref(result)), 0);
    EXPECT_EQ(text_of(telling).magic[0], '?');
    telling.call("fail", 1234, "why");
    const Text text = text_of(telling);
    EXPECT_EQ(std::string(text.magic, 8), std::string("KA.TEXT\0", 8));
    EXPECT_EQ(text.code, 1234);
    EXPECT_EQ(std::string(text.text, static_cast<size_t>(text.length)), "why");
    telling.call("fail", 1235, std::string(500, 'x'));
    EXPECT_EQ(text_of(telling).length, 240);
    const auto *const bytes = static_cast<const char *>(telling.scratch().data);
    EXPECT_EQ(std::string(bytes, 16) + bytes[272], std::string(17, '?'));
}

TEST_P(Exceptions, write_nothing_into_the_scratch_area_unasked)
{
    std::memset(host.scratch().data, '?', static_cast<size_t>(host.scratch().size));
    host.call("fail", 1234, "why");
    EXPECT_EQ(std::string(static_cast<const char *>(host.scratch().data), static_cast<size_t>(host.scratch().size)),
              std::string(static_cast<size_t>(host.scratch().size), '?'));
    ka::Options small = with_output();
    small.scratch_bytes = 200;
    ka::Host telling(module_path("failing_text"), small);
    std::memset(telling.scratch().data, '?', 200);
    EXPECT_EQ(telling.call("fail", 1234, "why"), 1234);
    EXPECT_EQ(std::string(static_cast<const char *>(telling.scratch().data), 200), std::string(200, '?'));
}

// ---- Without exceptions ------------------------------------------------------------------------------------------

TEST_P(Exceptions, without_them_the_function_goes_on)
{
    std::string out = "x";
    std::int32_t after = 0;
    EXPECT_EQ(without.call("overflow", ka::ref(out, 5), 0, ka::ref(after)), KASTR_NO_ROOM);
    EXPECT_EQ(out, "x");
    EXPECT_EQ(after, 1);
    EXPECT_EQ(without.call("overflow", ka::ref(out, 5), 1007, ka::ref(after)), 1007);
    EXPECT_EQ(without.call("overflow", ka::ref(out, 80), 0, ka::ref(after)), 0);
    double q = 1;
    EXPECT_EQ(without.call("divide", 1, 0, ka::ref(q)), REAL_DIVISION_BY_ZERO);
    EXPECT_EQ(without.call("divide", 1, 4, ka::ref(q)), 0);
    EXPECT_EQ(q, 0.25);
    EXPECT_EQ(without.call("both", 1, "x"), REAL_DIVISION_BY_ZERO);
    EXPECT_EQ(without.call("number", "x"), 8);
    EXPECT_EQ(without.call("number", 5), 5);
    out = "x";
    EXPECT_EQ(without.call("text", ka::ref(out, 3)), KASTR_NO_ROOM);
    EXPECT_EQ(without.call("resize", ka::ref(out, 80), 90), KASTR_NO_ROOM);
    EXPECT_EQ(without.call("resize", ka::ref(out, 80), 9), 0);
}

TEST_P(Exceptions, without_them_the_first_failure_is_told)
{
    EXPECT_EQ(without.call("both", 1, "x"), REAL_DIVISION_BY_ZERO);
    EXPECT_EQ(without.error_output(), "ka: both: a division of a REAL by zero\n");
}
