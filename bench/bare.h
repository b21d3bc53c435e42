/* SPDX-License-Identifier: MIT
 *
 * What a bare host and its caller share. */
#ifndef BENCH_BARE_H
#define BENCH_BARE_H

#include <stdint.h>

enum { bare_values = 1000 };

struct bare {
    int32_t pid; /* of the caller */
    int32_t a, b, sum;
    double values[bare_values]; /* which a host has room for, and leaves as they are */
};

#endif
