// SPDX-License-Identifier: MIT
//
// The 64-bit process that decimal64.h describes.
#include "decimal64.h"

#define DECIMAL_CALL_BY_REFERENCE 0
#define DECIMAL_GLOBAL_ROUNDING 0
#define DECIMAL_GLOBAL_EXCEPTION_FLAGS 0
#include <bid_conf.h>
#include <bid_functions.h>

namespace {

bench::Operands operands;
std::array<BID_UINT64, bench::operand_count> values;
BID_UINT64 value;
char text[64];
unsigned flags;

void parse(long i)
{
    value = bid64_from_string(operands.texts[static_cast<size_t>(i) % bench::operand_count].data(), 0, &flags);
}

void format(long i)
{
    bid64_to_string(text, values[static_cast<size_t>(i) % bench::operand_count], &flags);
}

} // namespace

int main()
{
    if (!bench::read_all(STDIN_FILENO, &operands.texts, sizeof operands.texts)) return 1;
    for (size_t i = 0; i < bench::operand_count; i++) {
        parse(static_cast<long>(i));
        values[i] = value;
    }
    return bench::serve({bench::burst_of(parse), bench::burst_of(format)}); // in the order of Decimal64
}
