// SPDX-License-Identifier: MIT
//
// The constant records.
#include <cstdint>
#include <cstdio>
#include <gtest/gtest.h>

#include "model/notation.h"

using namespace model;

TEST(Decconst, hold_their_value_and_zero_bytes_behind_it)
{
    EXPECT_EQ(show_raw(c_dec_zero), "exp 0 pos 1 ndgts 0 bytes 0,0,0,0,0,0,0,0");
    EXPECT_EQ(show_raw(c_dec_one), "exp 1 pos 1 ndgts 1 bytes 1,0,0,0,0,0,0,0");
    EXPECT_EQ(show_raw(c_dec_huge), "exp 63 pos 1 ndgts 7 bytes 99,99,99,99,99,99,99,0");
    EXPECT_EQ(show_raw(c_int32_max), "exp 5 pos 1 ndgts 5 bytes 21,47,48,36,47,0,0,0");
    EXPECT_EQ(show_raw(c_int32_min), "exp 5 pos 0 ndgts 5 bytes 21,47,48,36,48,0,0,0");
}

// The permissions of the mapping that holds the address, such as "r--p".
static std::string permissions(const void *address)
{
    FILE *maps = fopen("/proc/self/maps", "r");
    std::string found;
    char line[512];
    while (found.empty() && fgets(line, sizeof line, maps)) {
        unsigned long low = 0;
        unsigned long high = 0;
        char flags[5];
        if (sscanf(line, "%lx-%lx %4s", &low, &high, flags) != 3) continue;
        const auto at = reinterpret_cast<uintptr_t>(address);
        if (at >= low && at < high) found = flags;
    }
    fclose(maps);
    return found;
}

TEST(Decconst, huge_has_seven_digits)
{
    EXPECT_EQ(c_dec_huge.dec_ndgts, 7);
    EXPECT_EQ(show(c_dec_huge), "63:+:99,99,99,99,99,99,99");
}

TEST(Decconst, cannot_be_written)
{
    for (const t_DECIMAL *constant : {&c_dec_zero, &c_dec_one, &c_dec_huge, &c_int32_max, &c_int32_min})
        EXPECT_EQ(permissions(constant), "r--p");
}
