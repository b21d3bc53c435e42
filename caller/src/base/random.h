/* SPDX-License-Identifier: MIT
 *
 * Random words: values that a module cannot have put there itself, and names that are not in use. They need not be
 * secret. */
#ifndef KA_CALLER_RANDOM_H
#define KA_CALLER_RANDOM_H

#include <stdint.h>

void seed_random(uint64_t *random);
int32_t random_word(uint64_t *random);

#endif
