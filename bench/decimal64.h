// SPDX-License-Identifier: MIT
//
// Intel's decimal64 is packaged for 64 bits only: programs of either word size measure beside a 64-bit process. It is
// sent the operands as texts, and then what to do with them.
#ifndef BENCH_DECIMAL64_H
#define BENCH_DECIMAL64_H

#include "burst_process.h"
#include "operands.h"

namespace bench {

enum Decimal64 : int32_t { decimal64_parse, decimal64_format };

} // namespace bench

#endif
