// SPDX-License-Identifier: MIT
//
// The process ends on a null REAL anywhere, and on a blank text.
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
static const t_DECIMAL one = c_dec_one;
static t_DECIMAL result = c_dec_one;
static char text[64];
static int decpt;
static int sign;

TEST(FatalMathError, prints_the_code_and_the_line_and_aborts)
{
    EXPECT_ABORT(fatal_math_error(-2, 17), "fatal math error cc #-2\nfile = math/src/math, line = 17\n");
    EXPECT_ABORT(fatal_math_error(-1234, 1), "fatal math error cc #-1234\nfile = math/src/math, line = 1\n");
    EXPECT_ABORT(fatal_math_error(0, 0), "fatal math error cc #0\nfile = math/src/math, line = 0\n");
}

TEST(FatalMathError, prints_nothing_on_standard_output)
{
    // With standard output sent the same way, any line of its own would show in the text.
    EXPECT_ABORT((fflush(stdout), dup2(2, 1), m_sgn(&null), fflush(stdout)), fatal(-2));
}

TEST(FatalMathError, aborts_though_the_signal_is_blocked)
{
    const auto block = [] {
        sigset_t signals;
        sigfillset(&signals);
        sigprocmask(SIG_SETMASK, &signals, nullptr);
    };
    EXPECT_ABORT((block(), m_sgn(&null)), fatal(-2));
}

TEST(MSgn, null_is_fatal)
{
    EXPECT_ABORT(m_sgn(&null), fatal(-2));
}

TEST(MChs, null_is_fatal)
{
    EXPECT_ABORT(m_chs(&null, &result), fatal(-2));
    t_DECIMAL itself = null;
    EXPECT_ABORT(m_chs(&itself, &itself), fatal(-2));
}

TEST(MCmp, null_is_fatal)
{
    EXPECT_ABORT(m_cmp(&null, &one), fatal(-2));
    EXPECT_ABORT(m_cmp(&one, &null), fatal(-2));
    EXPECT_ABORT(m_cmp(&null, &null), fatal(-2));
}

TEST(MStore, null_is_fatal)
{
    EXPECT_ABORT(m_store(&null, text, 9), fatal(-2));
}

TEST(MToDbl, null_is_fatal)
{
    double d = 0;
    EXPECT_ABORT(m_to_dbl(&null, &d), fatal(-2));
}

// A module may have its double in the place of the REAL.
TEST(MToDbl, null_is_fatal_where_the_double_takes_its_place)
{
    union {
        t_DECIMAL real;
        double number;
    } place = {null};
    EXPECT_ABORT(m_to_dbl(&place.real, &place.number), fatal(-2));
}

TEST(MToInt, null_is_fatal)
{
    int32_t i = 0;
    EXPECT_ABORT(m_to_int(&null, &i), fatal(-2));
}

TEST(MToAsc, null_is_fatal)
{
    EXPECT_ABORT(m_to_asc(&null, text, 8, 2), fatal(-2));
}

TEST(MGcvt, null_is_fatal_even_when_no_digits_are_asked)
{
    EXPECT_ABORT(m_gcvt(&null, 14, text), fatal(-2));
    EXPECT_ABORT(m_gcvt(&null, 0, text), fatal(-2));
    EXPECT_ABORT(m_gcvt(&null, -1, text), fatal(-2));
}

TEST(MEcvt, null_is_fatal)
{
    EXPECT_ABORT(m_ecvt(&null, 14, &decpt, &sign), fatal(-2));
    EXPECT_ABORT(m_fcvt(&null, 14, &decpt, &sign), fatal(-2));
}

TEST(MCvAsc, blank_field_is_fatal)
{
    EXPECT_ABORT(m_cv_asc("", 0, &result), fatal(-2));
    EXPECT_ABORT(m_cv_asc("   ", 3, &result), fatal(-2));
    EXPECT_ABORT(m_cv_asc("   5", 3, &result), fatal(-2));
}
