// SPDX-License-Identifier: MIT
//
// Nanoseconds of one operation, and a table of them. The packaged benchmark libraries are built for 64 bits only, and
// the benchmarks are run in each word size. Figures of different runs or machines are not comparable: in every
// table the ratios are to one row, measured in the same run.
#ifndef BENCH_TIMING_H
#define BENCH_TIMING_H

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

namespace bench {

// Keeps the compiler from dropping results in memory that only the benchmark reads.
inline void keep_results()
{
    asm volatile("" : : : "memory");
}

// Median of 15 timings, each long enough (20 ms) for the clock.
template <typename Operation>
double nanoseconds(Operation operation)
{
    using clock = std::chrono::steady_clock;
    const auto time = [&](long rounds) {
        const auto start = clock::now();
        for (long i = 0; i < rounds; i++)
            operation(i);
        return std::chrono::duration<double, std::nano>(clock::now() - start).count();
    };
    long rounds = 1;
    while (time(rounds) < 20e6)
        rounds *= 2;
    std::vector<double> runs;
    for (int i = 0; i < 15; i++)
        runs.push_back(time(rounds) / static_cast<double>(rounds));
    std::nth_element(runs.begin(), runs.begin() + 7, runs.end());
    return runs[7];
}

class Table {
public:
    // All ratios are to the first row, unless a row names another.
    explicit Table(const std::string &title) { std::printf("%-44s %12s %9s\n", title.c_str(), "ns", "ratio"); }
    void row(const std::string &name, double ns, double to = 0)
    {
        if (base_ == 0) base_ = ns;
        std::printf("%-44s %12.1f %9.2f\n", name.c_str(), ns, ns / (to == 0 ? base_ : to));
        std::fflush(stdout);
    }

private:
    double base_ = 0;
};

} // namespace bench

#endif
