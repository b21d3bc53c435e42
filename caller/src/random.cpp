/* SPDX-License-Identifier: MIT
 *
 * Random words: marks that a module cannot have put there itself, and names that nobody else uses. They need not be
 * secret. */
#include "host.h"

#include <sys/random.h>

void seed_random(ka_host *host)
{
    if (getrandom(&host->random, sizeof host->random, GRND_NONBLOCK) == sizeof host->random) return;
    host->random = static_cast<uint64_t>(now_ns()) ^ reinterpret_cast<uintptr_t>(host);
}

/* A counter, thoroughly mixed. */
int32_t random_word(ka_host *host)
{
    uint64_t z = host->random += 0x9e3779b97f4a7c15u;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return static_cast<int32_t>(z >> 32);
}
