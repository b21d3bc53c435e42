/* SPDX-License-Identifier: MIT
 *
 * Copies the characters of strings, most of which are short: a function of the C library costs more than they do. */
#ifndef KA_CALLER_COPY_H
#define KA_CALLER_COPY_H

#include <stddef.h>
#include <string.h>

/* 8 to 32 characters in two steps that overlap. */
inline void copy_characters(char *to, const char *from, size_t length)
{
    if (length - 16 <= 16) {
        memcpy(to, from, 16);
        memcpy(to + length - 16, from + length - 16, 16);
    } else if (length - 8 <= 8) {
        memcpy(to, from, 8);
        memcpy(to + length - 8, from + length - 8, 8);
    } else {
        memcpy(to, from, length);
    }
}

#endif
