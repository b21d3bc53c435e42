// SPDX-License-Identifier: MIT
//
// Tables of columns that take turns, as text and as lines of a file, and the processor that they share.
#ifndef BENCH_COLUMNS_H
#define BENCH_COLUMNS_H

#include <sched.h>

#include "timing.h"

namespace bench {

struct Column {
    std::string name;
    Burst burst;
    size_t floor;       // the column that the ratio is to
    double at_most = 0; // the ratio, where there is an aim
};

inline void print(Csv &csv, const std::string &title, const std::vector<Column> &columns)
{
    std::vector<Burst> bursts;
    for (const Column &column : columns)
        bursts.push_back(column.burst);
    const std::vector<Figure> figures = measure(bursts);
    std::printf("%-52s %11s %7s %11s %7s %7s\n", title.c_str(), "median ns", "ratio", "decile ns", "ratio",
                "at most");
    for (size_t i = 0; i < columns.size(); i++) {
        const Figure own = figures[i];
        const Figure floor = figures[columns[i].floor];
        const Figure ratio = {own.median / floor.median, own.decile / floor.decile};
        std::printf("%-52s %11.0f %7.3f %11.0f %7.3f", columns[i].name.c_str(), own.median, ratio.median, own.decile,
                    ratio.decile);
        if (columns[i].at_most > 0) std::printf(" %7.2f", columns[i].at_most);
        std::printf("\n");
        csv.line(title, columns[i].name, own);
        csv.line(title, columns[i].name + " / " + columns[columns[i].floor].name, ratio, columns[i].at_most);
    }
    std::printf("\n");
    std::fflush(stdout);
}

inline void stay_on_this_processor()
{
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    sched_setaffinity(0, sizeof one, &one);
}

} // namespace bench

#endif
