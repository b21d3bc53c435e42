// SPDX-License-Identifier: MIT
//
// Nanoseconds of one operation, and a table of them. The packaged benchmark libraries are built for 64 bits only, and
// the benchmarks are run in each word size. Figures of different runs or machines are not comparable: in every
// table the ratios are of operations that took turns in the same run.
#ifndef BENCH_TIMING_H
#define BENCH_TIMING_H

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace bench {

// Keeps the compiler from dropping results in memory that only the benchmark reads.
inline void keep_results()
{
    asm volatile("" : : : "memory");
}

// ---- Operations that take turns
// ------------------------------------------------------------------------------------

// Runs an operation so many times; the nanoseconds that took.
using Burst = std::function<double(long times)>;

template <typename Operation>
Burst burst_of(Operation operation)
{
    return [operation](long times) {
        using clock = std::chrono::steady_clock;
        const auto start = clock::now();
        for (long i = 0; i < times; i++) {
            operation(i);
            keep_results();
        }
        return std::chrono::duration<double, std::nano>(clock::now() - start).count();
    };
}

// Nanoseconds of one operation: of all bursts the middle one, and the one that a tenth of them are not slower than.
// On a busy machine the second is the steadier.
struct Figure {
    double median = 0;
    double decile = 0;
};

inline Figure figure_of(std::vector<double> times)
{
    std::sort(times.begin(), times.end());
    return {times[times.size() / 2], times[times.size() / 10]};
}

struct Bursts {
    double ns = 5e5; // of each
    int per_round = 40;
    int rounds = 4;
};

// How many times make a burst of that length.
inline long times_of(const Burst &burst, double burst_ns)
{
    long times = 1;
    double ns = burst(times);
    while (ns < burst_ns / 4) {
        times *= 2;
        ns = burst(times);
    }
    return std::max(1L, std::lround(burst_ns / ns * static_cast<double>(times)));
}

// All columns take turns, burst by burst, so that what disturbs the machine disturbs all of them.
inline std::vector<Figure> measure(const std::vector<Burst> &columns, const Bursts &bursts = {})
{
    std::vector<std::vector<double>> times(columns.size());
    for (int round = 0; round < bursts.rounds; round++) {
        std::vector<long> lengths;
        for (const Burst &column : columns)
            lengths.push_back(times_of(column, bursts.ns));
        for (int i = 0; i < bursts.per_round; i++)
            for (size_t c = 0; c < columns.size(); c++)
                times[c].push_back(columns[c](lengths[c]) / static_cast<double>(lengths[c]));
    }
    std::vector<Figure> figures;
    for (const std::vector<double> &each : times)
        figures.push_back(figure_of(each));
    return figures;
}

// The figures of a run as a file: one line each. Lines of ratios, whose column is "a / b", have what they should be
// at most, if there is such a figure.
class Csv {
public:
    explicit Csv(const char *path = nullptr) : file_(path != nullptr ? std::fopen(path, "w") : nullptr)
    {
        if (path != nullptr && file_ == nullptr) std::perror(path);
        if (file_ != nullptr) std::fprintf(file_, "bits,row,column,median,decile,at_most\n");
    }
    ~Csv()
    {
        if (file_ != nullptr) std::fclose(file_);
    }
    Csv(const Csv &) = delete;
    Csv &operator=(const Csv &) = delete;

    void line(const std::string &row, const std::string &column, Figure figure, double at_most = 0)
    {
        if (file_ == nullptr) return;
        std::fprintf(file_, "%zu,\"%s\",\"%s\",%.4g,%.4g,", 8 * sizeof(void *), row.c_str(), column.c_str(),
                     figure.median, figure.decile);
        if (at_most > 0) std::fprintf(file_, "%g", at_most);
        std::fprintf(file_, "\n");
    }
    // Before a fork, and at the end of the new process.
    void flush()
    {
        if (file_ != nullptr) std::fflush(file_);
    }

private:
    std::FILE *file_;
};

// The file that --csv FILE names, or nullptr.
inline const char *csv_path(int argc, char **argv)
{
    for (int i = 1; i + 1 < argc; i++)
        if (std::string(argv[i]) == "--csv") return argv[i + 1];
    return nullptr;
}

// ---- One operation after the other
// ---------------------------------------------------------------------------------

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
