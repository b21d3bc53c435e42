/* SPDX-License-Identifier: MIT
 *
 * See random.h. */
#include "random.h"

#include <sys/random.h>

#include "clock.h"

void seed_random(uint64_t *random)
{
    if (getrandom(random, sizeof *random, GRND_NONBLOCK) == sizeof *random) return;
    *random = static_cast<uint64_t>(now_ns()) ^ reinterpret_cast<uintptr_t>(random);
}

/* A counter, thoroughly mixed. */
int32_t random_word(uint64_t *random)
{
    uint64_t z = *random += 0x9e3779b97f4a7c15u;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return static_cast<int32_t>(z >> 32);
}
