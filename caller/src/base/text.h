/* SPDX-License-Identifier: MIT
 *
 * Text that grows as it is written. When there is no memory for it, the rest is dropped, and there is no text in the
 * end. */
#ifndef KA_CALLER_TEXT_H
#define KA_CALLER_TEXT_H

#include <stddef.h>

struct t_TEXT {
    char *bytes;
    size_t length;
    size_t room;
    bool failed;
};

void write_bytes(t_TEXT *text, const char *bytes, size_t length);
__attribute__((format(printf, 2, 3))) void write_text(t_TEXT *text, const char *format, ...);
/* Text from outside, on one line: what may not be shown as it is becomes \xHH. */
void write_printable(t_TEXT *text, const char *bytes, size_t length);
/* The same in double quotes, which then are escaped too. */
void write_quoted(t_TEXT *text, const char *bytes, size_t length);
/* Zero-terminated, to be freed; null when there was no memory. */
char *finish_text(t_TEXT *text);

#endif
