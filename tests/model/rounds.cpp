// SPDX-License-Identifier: MIT
//
// Counting rounds, and the long mode's time and progress.
#include "model/rounds.h"

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <unistd.h>

#include "model/draw.h"

namespace model {

using Seconds = std::chrono::duration<double>;

// "90s", "10m", "2h", "1.5h"
static Seconds duration(const char *text)
{
    char *unit = nullptr;
    const double number = strtod(text, &unit);
    const std::string name = unit;
    if (number > 0 && name == "s") return Seconds(number);
    if (number > 0 && name == "m") return Seconds(60 * number);
    if (number > 0 && name == "h") return Seconds(3600 * number);
    throw std::invalid_argument("KA_FOR: not a duration such as 90s, 10m or 2h: '" + std::string(text) + "'");
}

// This test and the selected ones that have not begun.
static int tests_left()
{
    const testing::UnitTest &all = *testing::UnitTest::GetInstance();
    int left = 1;
    for (int i = 0; i < all.total_test_suite_count(); i++) {
        const testing::TestSuite &suite = *all.GetTestSuite(i);
        for (int j = 0; j < suite.total_test_count(); j++) {
            const testing::TestInfo &test = *suite.GetTestInfo(j);
            if (test.should_run() && test.result()->start_timestamp() == 0) left++;
        }
    }
    return left;
}

bool Rounds::timed()
{
    return getenv("KA_FOR") != nullptr;
}

static int counted(int by_default)
{
    const char *given = getenv("KA_ROUNDS");
    return given ? atoi(given) : (by_default + sanitizer_step - 1) / sanitizer_step;
}

Rounds::Rounds(int by_default) : least_(counted(by_default))
{
    if (!timed()) return;
    static const Clock::time_point end_of_all =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(duration(getenv("KA_FOR")));
    if (end_of_all > start_) end_ = start_ + (end_of_all - start_) / tests_left();
}

Rounds::~Rounds()
{
    if (end_ != start_) show(Clock::now(), "\n");
}

// The clock is read now and then only.
bool Rounds::more()
{
    const bool go_on = begun_ < least_ || (end_ != start_ && begun_ % 64 != 0) || time_is_left();
    if (go_on) begun_++;
    return go_on;
}

bool Rounds::time_is_left()
{
    if (end_ == start_) return false;
    static const bool terminal = isatty(STDERR_FILENO);
    const Clock::time_point now = Clock::now();
    if (now - shown_ >= (terminal ? Seconds(0.5) : Seconds(10))) {
        show(now, terminal ? "\r" : "\n");
        shown_ = now;
    }
    return now < end_;
}

void Rounds::show(Clock::time_point now, const char *end) const
{
    const testing::TestInfo *test = testing::UnitTest::GetInstance()->current_test_info();
    const double spent = Seconds(now - start_).count();
    const double left = now < end_ ? Seconds(end_ - now).count() : 0;
    fprintf(stderr, "%s.%s: %lld rounds, %.0f/s, %.0f s left, KA_SEED=%llu    %s", test->test_suite_name(),
            test->name(), static_cast<long long>(begun_), spent > 0 ? static_cast<double>(begun_) / spent : 0, left,
            static_cast<unsigned long long>(Draw::last_seed()), end);
}

} // namespace model
