// SPDX-License-Identifier: MIT
//
// See rows.h: the whole table. A message comes from the call host (host_rows), from fail() in libkacall
// (library_rows), from compiler, linker and loader (build_rows); numbers are those of functions (code_rows) and of
// ended processes (exit_rows).
#include "rows.h"

std::span<const Explanation> explanations()
{
    static const std::vector<Explanation> all = [] {
        std::vector<Explanation> rows;
        for (const auto part : {code_rows(), library_rows(), exit_rows(), host_rows(), build_rows()})
            rows.insert(rows.end(), part.begin(), part.end());
        return rows;
    }();
    return all;
}
