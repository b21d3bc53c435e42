// SPDX-License-Identifier: MIT
//
// See segment_size.h.
#include "segment_size.h"

#include <algorithm>

#include "ka/dll_block.h"

namespace {

int64_t element_bytes(const Argument &argument)
{
    if (argument.type == DLL_INTEGER) return 4;
    if (argument.type == DLL_REAL) return int64_t{sizeof(t_DECIMAL)};
    return 8 + std::max<int64_t>(argument.room, longest_string(argument));
}

// The header and 51 descriptors have a page.
int64_t bytes_for(const Invocation &invocation, int32_t scratch_bytes)
{
    int64_t sum = 4096 + static_cast<int64_t>(invocation.function.size()) + int64_t{scratch_bytes};
    for (const Argument &argument : invocation.arguments) {
        const size_t count = argument.integers.size() + argument.reals.size() + argument.strings.size();
        sum += 16 + static_cast<int64_t>(count) * element_bytes(argument);
    }
    return sum;
}

} // namespace

bool make_room(ka_options &options, const Invocation &invocation)
{
    const int64_t needed = bytes_for(invocation, options.scratch_bytes);
    if (needed <= options.segment_bytes) return false;
    options.segment_bytes = static_cast<int32_t>(std::min<int64_t>(needed, INT32_MAX));
    return true;
}
