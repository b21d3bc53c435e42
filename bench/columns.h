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

// A line of a table. The second of the two figures is the lower decile, or what the table says.
struct Line {
    std::string name;
    Figure own;
    size_t floor; // the line that the ratio is to
    double at_most = 0;
};

inline void print_lines(Csv &csv, const std::string &title, const std::vector<Line> &lines,
                        const char *second = "decile")
{
    std::printf("%-52s %11s %7s %8s ns %7s %7s\n", title.c_str(), "median ns", "ratio", second, "ratio", "at most");
    for (const Line &line : lines) {
        const Figure floor = lines[line.floor].own;
        const Figure ratio = {line.own.median / floor.median, line.own.decile / floor.decile};
        std::printf("%-52s %11.0f %7.3f %11.0f %7.3f", line.name.c_str(), line.own.median, ratio.median,
                    line.own.decile, ratio.decile);
        if (line.at_most > 0) std::printf(" %7.2f", line.at_most);
        std::printf("\n");
        csv.line(title, line.name, line.own);
        csv.line(title, line.name + " / " + lines[line.floor].name, ratio, line.at_most);
    }
    std::printf("\n");
    std::fflush(stdout);
}

inline void print(Csv &csv, const std::string &title, const std::vector<Column> &columns, const Bursts &how = {})
{
    std::vector<Burst> bursts;
    for (const Column &column : columns)
        bursts.push_back(column.burst);
    const std::vector<Figure> figures = measure(bursts, how);
    std::vector<Line> lines;
    for (size_t i = 0; i < columns.size(); i++)
        lines.push_back({columns[i].name, figures[i], columns[i].floor, columns[i].at_most});
    print_lines(csv, title, lines);
}

// The first ones of the machine.
inline void use_processors(int count)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    for (int i = 0; i < count; i++)
        CPU_SET(i, &set);
    if (sched_setaffinity(0, sizeof set, &set) != 0) std::perror("processors");
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
