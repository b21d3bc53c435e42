/* SPDX-License-Identifier: MIT
 *
 * What a bare host and its caller share. */
#ifndef BENCH_BARE_H
#define BENCH_BARE_H

#include <stdint.h>

struct bare {
    int32_t pid; /* of the caller */
    int32_t a, b, sum;
};

#endif
