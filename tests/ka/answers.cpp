// SPDX-License-Identifier: MIT
//
// How call-backs are answered.
#include "values/callback_rule.h"

#include <climits>

#include "ka/command.h"
#include "values/literal.h"

static std::string complaint_about(const std::string &rule)
{
    const Outcome outcome = call({"--callback", rule, "ask", "1"});
    EXPECT_EQ(outcome.status, 2) << rule;
    return outcome.err;
}

TEST(KaAnswers, are_told_on_standard_error)
{
    const Outcome outcome = call({"--callback", "value+1", "ask", "41"});
    EXPECT_EQ(outcome.out, "return code 42\n");
    EXPECT_EQ(outcome.err, "ka: call-back 41, answered 42\n");
    EXPECT_EQ(call({"--callback", "const:7", "ask", "41"}).out, "return code 7\n");
    EXPECT_EQ(call({"--callback=-7", "ask", "41"}).out, "return code -7\n");
    EXPECT_EQ(call({"ask", "41"}).out, "return code 0\n");
}

TEST(KaAnswers, are_arithmetic)
{
    const std::pair<const char *, int32_t> cases[] = {
        {"value", 10},
        {"value+1*2", 12},
        {" ( value + 1 ) * 2 ", 22},
        {"-value", -10},
        {"--value", 10},
        {"7-value-1", -4},
        {"7/2*value", 30},
        {"-7/2", -3},
        {"-7%3", -1},
        {"value%-3", 1},
        {"2147483647+1", INT_MIN},
        {"-2147483648", INT_MIN},
        {"-2147483648-1", INT_MAX},
        {"65536*65536", 0},
        {"-2147483648/-1", INT_MIN},
        {"-2147483648%-1", 0},
        {"const:-5", -5},
    };
    for (const auto &[rule, expected] : cases) {
        const Answer answer = answer_to(rule, 10);
        EXPECT_EQ(answer.value, expected) << rule;
        EXPECT_FALSE(answer.divides_by_zero) << rule;
    }
}

TEST(KaAnswers, division_by_zero_is_told_and_answered_0)
{
    for (const char *rule : {"5/value", "5%value+3", "1/(value-value)"}) {
        const Outcome outcome = call({"--callback", rule, "ask", "0"});
        EXPECT_EQ(outcome.out, "return code 0\n");
        EXPECT_EQ(outcome.err, "ka: call-back 0, answered 0, since something is divided by zero\n");
    }
    EXPECT_EQ(call({"--callback", "8/value", "ask", "2"}).out, "return code 4\n");
}

TEST(KaAnswers, malformed_rules_are_named)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", "a number, \"value\" or a parenthesis is missing at the end"},
        {"value+", "a number, \"value\" or a parenthesis is missing at the end"},
        {"x+1", "a number, \"value\" or a parenthesis is missing before \"x+1\""},
        {"(value", "a closing parenthesis is missing"},
        {"value)", "\")\" is not arithmetic"},
        {"4.2", "\".2\" is not arithmetic"},
        {"const:", "a number, \"value\" or a parenthesis is missing at the end"},
        {"2147483649", "a number that does not fit 32 bits"},
        {"99999999999999999999", "a number that does not fit 32 bits"},
        {std::string(200, '('), "nested too deeply"},
    };
    for (const auto &[rule, reason] : cases)
        EXPECT_EQ(complaint_about(rule), "ka: --callback " + rule + ": " + reason + "\n");
}
