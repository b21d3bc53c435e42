/* SPDX-License-Identifier: MIT
 *
 * See printable.h. */
#include "printable.h"

#include <string.h>

#include "wire/printable.h"

void copy_printable(char *shown, size_t size, const char *text)
{
    static constexpr char digits[] = "0123456789abcdef";
    size_t at = 0;
    for (size_t left = strlen(text); left > 0;) {
        const unsigned byte = static_cast<unsigned char>(*text);
        const char escape[] = {'\\', 'x', digits[byte / 16], digits[byte % 16]};
        const size_t length = wire::printable_length(text, left);
        const char *form = length > 0 ? text : escape;
        const size_t count = length > 0 ? length : sizeof escape;
        if (at + count >= size) break;
        memcpy(shown + at, form, count);
        at += count;
        const size_t step = length > 0 ? length : 1;
        text += step;
        left -= step;
    }
    shown[at] = '\0';
}
