// SPDX-License-Identifier: MIT
//
// Digit strings, layout and reading against the model.
#include <gtest/gtest.h>

#include "model/draw.h"
#include "model/guarded.h"
#include "model/notation.h"
#include "model/rounds.h"
#include "model/text.h"

using namespace model;

static constexpr int unwritten = -77777;

static std::string show(const Digits &d)
{
    return '"' + d.text + "\" " + std::to_string(d.decpt.value_or(unwritten)) + " " +
           std::to_string(d.sign.value_or(unwritten));
}

static Digits ask(const t_DECIMAL &x, int count, Count meaning)
{
    int decpt = unwritten;
    int sign = unwritten;
    const char *text =
        meaning == Count::total ? dececvt(&x, count, &decpt, &sign) : decfcvt(&x, count, &decpt, &sign);
    return {text, decpt, sign};
}

TEST(Decefcvt, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(150000); rounds.more();) {
        const t_DECIMAL x = draw.record();
        const Count meaning = draw.one_in(2) ? Count::total : Count::after_point;
        int count = draw.one_in(20) ? draw.between(-150, 300) : draw.between(-2, 18);
        // Counts near the point, where the last digits shown are those of the value.
        if (meaning == Count::after_point && draw.one_in(2)) count -= 2 * x.dec_exp;
        const std::string expected = show(digit_string(x, count, meaning));
        const std::string got = show(ask(x, count, meaning));
        ASSERT_EQ(got, expected) << model::show(x) << " count " << count
                                 << (meaning == Count::total ? " in all" : " after the point") << " in round "
                                 << rounds.number();
    }
}

TEST(Dectoasc, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(150000); rounds.more();) {
        t_DECIMAL x = draw.record();
        if (draw.one_in(2)) x.dec_exp = static_cast<int16_t>(draw.between(-4, 10));
        const int length = draw.one_in(20) ? draw.between(0, 200) : draw.between(0, 26);
        const int places = draw.one_in(3) ? -1 : draw.one_in(20) ? draw.between(0, 200) : draw.between(0, 12);
        Guarded field(length);
        ASSERT_EQ(dectoasc(&x, field.data(), length, places), DEC_OK);
        ASSERT_TRUE(field.intact()) << show(x) << " length " << length << " places " << places;
        ASSERT_EQ(field.text(), layout(x, length, places))
            << show(x) << " length " << length << " places " << places << " in round " << rounds.number();
    }
}

// Fields made of whatever a number is made of, most of them numbers.
static std::string draw_text(Draw &draw)
{
    const auto digits = [&](int most) {
        std::string run;
        for (int n = draw.below(most + 1); n > 0; n--)
            run += static_cast<char>('0' + (draw.one_in(3) ? draw.pick({0, 0, 4, 5, 9}) : draw.below(10)));
        return run;
    };
    std::string text(static_cast<size_t>(draw.one_in(4) ? draw.below(4) : 0), ' ');
    if (draw.one_in(3)) text += draw.one_in(3) ? "+" : "-";
    text += digits(draw.one_in(3) ? 22 : 10);
    if (!draw.one_in(3)) text += "." + digits(draw.one_in(3) ? 24 : 8);
    if (draw.one_in(2)) {
        text += draw.one_in(2) ? "e" : "E";
        if (draw.one_in(2)) text += draw.one_in(3) ? "+" : "-";
        text += draw.one_in(10) ? digits(5) : std::to_string(draw.below(140));
    }
    if (draw.one_in(4)) text += std::string(static_cast<size_t>(draw.below(3)), ' ');
    if (draw.one_in(8))
        text.insert(static_cast<size_t>(draw.below(static_cast<int>(text.size()) + 1)), 1, " .+-eEx9"[draw.below(8)]);
    return text;
}

TEST(Deccvasc, agrees_with_the_model)
{
    Draw draw;
    for (Rounds rounds(250000); rounds.more();) {
        const std::string text = draw_text(draw);
        // On the heap to the byte, so that the sanitizer sees any reading past it.
        const std::vector<char> field(text.begin(), text.end());
        const t_DECIMAL before = draw.record();
        t_DECIMAL result = before;
        const int code = deccvasc(field.data(), static_cast<int>(field.size()), &result);
        const Outcome expected = parse(text);
        t_DECIMAL only_null = before;
        only_null.dec_pos = DEC_NULL;
        const bool null_alone = !is_null(expected.record) || show_raw(result) == show_raw(only_null);
        ASSERT_TRUE(code == expected.code && same(result, expected.record) && null_alone)
            << '"' << text << "\"\n  expected: " << expected.code << " " << show(expected.record)
            << "\n  got:      " << code << " " << show_raw(result) << "\n  in round " << rounds.number();
    }
}
