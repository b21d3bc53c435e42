// SPDX-License-Identifier: MIT
//
// See rows.h: the whole table.
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
