// SPDX-License-Identifier: MIT
//
// REAL arithmetic that ends the process: a null operand, a negative number of places; which of the two is reported
// when both are met, and what has been written by then.
#include <climits>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <unistd.h>

#include "ka/real.h"
#include "model/crash.h"
#include "model/exact.h"

static std::string fatal(int cc)
{
    return "fatal math error cc #" + std::to_string(cc) + "\nfile = math/src/math, line = [1-9][0-9]*\n";
}

// Null by its sign byte alone: the digits after it must not save it.
static const t_DECIMAL null = model::record(1, DEC_NULL, {5});
static const t_DECIMAL five = model::record(1, DEC_POSITIVE, {5});
static const t_DECIMAL zero = c_dec_zero;
static t_DECIMAL result;

using Arithmetic = int (*)(const t_DECIMAL *, const t_DECIMAL *, t_DECIMAL *);

static void expect_null_to_be_fatal(Arithmetic operation)
{
    EXPECT_ABORT(operation(&null, &five, &result), fatal(-2));
    EXPECT_ABORT(operation(&five, &null, &result), fatal(-2));
    EXPECT_ABORT(operation(&null, &null, &result), fatal(-2));
    // A zero takes short ways through the decimal library, and none of them may miss the null.
    EXPECT_ABORT(operation(&null, &zero, &result), fatal(-2));
    EXPECT_ABORT(operation(&zero, &null, &result), fatal(-2));
    t_DECIMAL itself = null;
    EXPECT_ABORT(operation(&itself, &five, &itself), fatal(-2));
    EXPECT_ABORT(operation(&five, &itself, &itself), fatal(-2));
    EXPECT_ABORT(operation(&itself, &itself, &itself), fatal(-2));
    const t_DECIMAL no_digits = model::null_record();
    EXPECT_ABORT(operation(&no_digits, &five, &result), fatal(-2));
    EXPECT_ABORT(operation(&five, &no_digits, &result), fatal(-2));
}

TEST(MAdd, null_is_fatal)
{
    expect_null_to_be_fatal(m_add);
}

TEST(MSub, null_is_fatal)
{
    expect_null_to_be_fatal(m_sub);
}

TEST(MMpy, null_is_fatal)
{
    expect_null_to_be_fatal(m_mpy);
}

TEST(MDvd, null_is_fatal)
{
    expect_null_to_be_fatal(m_dvd);
}

static void expect_null_to_be_fatal(int (*operation)(const t_DECIMAL *, int, t_DECIMAL *))
{
    EXPECT_ABORT(operation(&null, 2, &result), fatal(-2));
    EXPECT_ABORT(operation(&null, INT_MAX, &result), fatal(-2));
    t_DECIMAL itself = null;
    EXPECT_ABORT(operation(&itself, 0, &itself), fatal(-2));
}

TEST(MTrunc, null_is_fatal)
{
    expect_null_to_be_fatal(m_trunc);
}

TEST(MRound, null_is_fatal)
{
    expect_null_to_be_fatal(m_round);
}

TEST(MTrunc, negative_places_are_fatal)
{
    EXPECT_ABORT(m_trunc(&five, -1, &result), fatal(-1));
    EXPECT_ABORT(m_trunc(&five, INT_MIN, &result), fatal(-1));
    EXPECT_ABORT(m_trunc(&zero, -1, &result), fatal(-1));
}

TEST(MRound, negative_places_are_fatal)
{
    EXPECT_ABORT(m_round(&five, -1, &result), fatal(-1));
    EXPECT_ABORT(m_round(&five, INT_MIN, &result), fatal(-1));
    EXPECT_ABORT(m_round(&zero, -1, &result), fatal(-1));
}

TEST(MTrunc, negative_places_come_before_null)
{
    EXPECT_ABORT(m_trunc(&null, -1, &result), fatal(-1));
}

TEST(MRound, null_comes_before_negative_places)
{
    EXPECT_ABORT(m_round(&null, -1, &result), fatal(-2));
}

// The places of a first digit below 10 are one more than the decimals.
TEST(Mkprec, negative_places_are_fatal)
{
    t_DECIMAL fifty = model::record(1, DEC_POSITIVE, {50});
    EXPECT_ABORT(mkprec(&fifty, -1), fatal(-1));
    t_DECIMAL ten = model::record(63, DEC_NEGATIVE, {10, 5});
    EXPECT_ABORT(mkprec(&ten, -1), fatal(-1));
    t_DECIMAL nine = model::record(1, DEC_POSITIVE, {9, 99});
    EXPECT_ABORT(mkprec(&nine, -2), fatal(-1));
    EXPECT_ABORT(mkprec(&nine, INT_MIN), fatal(-1));
}

TEST(Mkprec, negative_decimals_of_zero_and_null_are_fatal)
{
    t_DECIMAL nothing = c_dec_zero;
    EXPECT_ABORT(mkprec(&nothing, -1), fatal(-1));
    t_DECIMAL no_value = model::null_record();
    EXPECT_ABORT(mkprec(&no_value, -1), fatal(-1));
}

// Reads the records in the last moment and writes on standard error what became of them.
static t_DECIMAL operand;
static t_DECIMAL operand_before;
static t_DECIMAL result_before;

static void report(const char *text)
{
    if (write(STDERR_FILENO, text, strlen(text)) < 0) _exit(1);
}

static void tell_what_was_written(int)
{
    report(memcmp(&operand, &operand_before, sizeof operand) == 0 ? "operand kept\n" : "operand written\n");
    report(memcmp(&result, &result_before, sizeof result) == 0 ? "result kept\n" : "result written\n");
}

static void watch(const t_DECIMAL &x)
{
    operand = operand_before = x;
    result_before = result = model::record(7, DEC_NEGATIVE, {1, 2, 3, 4, 5, 6, 7, 8});
    signal(SIGABRT, tell_what_was_written);
}

static const char *const kept = "operand kept\nresult kept\n";

TEST(RealArithmetic, null_is_fatal_before_anything_is_written)
{
    for (const Arithmetic operation : {m_add, m_sub, m_mpy, m_dvd}) {
        EXPECT_ABORT((watch(null), operation(&operand, &five, &result)), fatal(-2) + kept);
        EXPECT_ABORT((watch(null), operation(&five, &operand, &result)), fatal(-2) + kept);
        EXPECT_ABORT((watch(null), operation(&operand, &zero, &result)), fatal(-2) + kept);
    }
}

TEST(MRound, null_is_fatal_before_anything_is_written)
{
    EXPECT_ABORT((watch(null), m_round(&operand, 2, &result)), fatal(-2) + kept);
}

TEST(MTrunc, operand_is_kept_when_it_is_fatal)
{
    EXPECT_ABORT((watch(null), m_trunc(&operand, 2, &result)), fatal(-2) + "operand kept\nresult [a-z]*\n");
    EXPECT_ABORT((watch(five), m_trunc(&operand, -1, &result)), fatal(-1) + "operand kept\nresult [a-z]*\n");
}

TEST(MRound, operand_is_kept_when_it_is_fatal)
{
    EXPECT_ABORT((watch(five), m_round(&operand, -1, &result)), fatal(-1) + "operand kept\nresult [a-z]*\n");
}
