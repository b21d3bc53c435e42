// SPDX-License-Identifier: MIT
//
// The entry that libFuzzer calls; KA_TARGET is the function to try.
#include <cstdio>
#include <cstdlib>

#include "fuzz/targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string complaint = KA_TARGET(fuzz::Bytes(data, data + size));
    if (complaint.empty()) return 0;
    fprintf(stderr, "%s\n", complaint.c_str());
    abort();
}
