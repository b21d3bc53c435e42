/* SPDX-License-Identifier: MIT
 *
 * A module that uses a library of the distribution. */
#include <zlib.h>

#include <ka/module.h>

static int32_t checksum(KaStr *text, int32_t *sum)
{
    *sum = (int32_t)adler32(1, (const Bytef *)text->data, (uInt)text->len);
    return 0;
}

static int32_t bits(int32_t *number)
{
    *number = 8 * sizeof(void *);
    return 0;
}

/* (int)(0.29 * 100) is 29 in the x87 registers. */
static int32_t cents(double amount, int32_t *number)
{
    *number = (int32_t)(amount * 100);
    return 0;
}

#define FUNCTIONS(F)                              \
    F(checksum, (string, text), (int32_ref, sum)) \
    F(bits, (int32_ref, number))                  \
    F(cents, (real, amount), (int32_ref, number))
KA_MODULE(FUNCTIONS)
