// SPDX-License-Identifier: MIT
//
// A tour: every kind of argument, strings, a call-back, the scratch area, the trace level, a crash.
#include <algorithm>
#include <cstdlib>
#include <ka/module.hpp>
#include <numeric>
#include <unistd.h>

// clang-format off
static std::int32_t total(ka::array<std::int32_t> values) { return std::accumulate(values.begin(), values.end(), 0); }

static double scale(double factor, ka::array<double, 2> values)
{
    for (double &x : values) x *= factor;
    return std::max(0.0, *std::max_element(values.begin(), values.end()));
}

// Code 18, and the string as it was, when there is no room for the greeting.
static std::string greet(const char *name) { return std::string("hello, ") + name; }

static void join(ka::array<std::string_view> words, ka::string line, ka::args more)
{
    line.clear();
    for (std::string_view word : words) line += word;
    for (ka::argument each : more) line += " " + std::to_string(each.kind());
}

// The caller answers while the function waits. The scratch area keeps the answers of earlier calls.
static void ask(std::int32_t question, std::int32_t &answer, std::int32_t &sum)
{
    sum = answer = ka::callback(question);
    if (auto *kept = ka::scratch<std::int32_t>()) sum = *kept += answer;
}

static void crash() { abort(); }
static void nap(std::int32_t seconds) { sleep(static_cast<unsigned>(seconds)); }

// TOUR_TRACE in the environment sets the trace level.
static void set_trace() { if (const char *level = getenv("TOUR_TRACE")) dll_debug = atoi(level); }

KA_ON_SETUP(set_trace)
KA_MODULE(KA_FN(total, "values", ka::result("sum")), KA_FN(scale, "factor", "values", ka::result("largest")),
          KA_FN(greet, "name", ka::result("greeting")), KA_FN(join, "words", "line", "more"),
          KA_FN(ask, "question", "answer", "sum"), KA_FN(crash), KA_FN(nap, "seconds"))
