// SPDX-License-Identifier: MIT
//
// See timing.h.
#include "timing.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

#include "one_call.h"

struct Timing::Summary {
    double per_second;
    double min;
    double median;
    double p99;
    double max;
};

// The least of the sorted times that a share of them all does not exceed.
static double percentile(const std::vector<double> &sorted, double share)
{
    const auto rank = static_cast<size_t>(std::ceil(share * static_cast<double>(sorted.size())));
    return sorted[std::max<size_t>(rank, 1) - 1];
}

// Only the calls count, not what lies between them.
Timing::Summary Timing::summary() const
{
    std::vector<double> sorted = times_;
    std::sort(sorted.begin(), sorted.end());
    const double total = std::accumulate(sorted.begin(), sorted.end(), 0.0);
    const double per_second = total > 0 ? 1000 * static_cast<double>(sorted.size()) / total : 0;
    return {per_second, sorted.front(), percentile(sorted, 0.5), percentile(sorted, 0.99), sorted.back()};
}

static std::string rounded(double value)
{
    char text[48];
    std::snprintf(text, sizeof text, "%.0f", value);
    return text;
}

void Timing::add(double milliseconds, int32_t return_code)
{
    times_.push_back(milliseconds);
    if (return_code != 0) nonzero_calls_++;
}

std::string Timing::text() const
{
    const Summary all = summary();
    const std::string nonzero = nonzero_calls_ == 0 ? "" : std::to_string(nonzero_calls_) + " of them not with 0; ";
    return std::to_string(calls()) + (calls() == 1 ? " call; " : " calls; ") + nonzero + rounded(all.per_second) +
           " calls/s; min " + milliseconds_text(all.min) + ", median " + milliseconds_text(all.median) + ", p99 " +
           milliseconds_text(all.p99) + ", max " + milliseconds_text(all.max) + " ms\n";
}

void Timing::add_to(JsonObject &json) const
{
    const Summary all = summary();
    json.add("calls", calls()).add("nonzero_calls", nonzero_calls_);
    json.add("calls_per_second", Json::of_json(rounded(all.per_second)));
    json.add("min_ms", milliseconds_json(all.min)).add("median_ms", milliseconds_json(all.median));
    json.add("p99_ms", milliseconds_json(all.p99)).add("max_ms", milliseconds_json(all.max));
}
