// SPDX-License-Identifier: MIT
//
// The operands of the number benchmarks, the same in every run and word size.
#ifndef BENCH_OPERANDS_H
#define BENCH_OPERANDS_H

#include <array>
#include <cstddef>

namespace bench {

constexpr size_t operand_count = 256;
constexpr size_t text_size = 32;

struct Operands {
    // Numbers of 8 to 16 significant decimals, zero-terminated.
    std::array<std::array<char, text_size>, operand_count> texts;
};

} // namespace bench

#endif
