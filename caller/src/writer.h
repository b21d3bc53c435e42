/* SPDX-License-Identifier: MIT
 *
 * Text that grows as it is written, and JSON on it. When there is no memory for it, the rest is dropped, and there is
 * no text in the end. */
#ifndef KA_CALLER_WRITER_H
#define KA_CALLER_WRITER_H

#include <stddef.h>
#include <stdint.h>

struct t_WRITER {
    char *text;
    size_t length;
    size_t room;
    bool failed;
    bool follows; /* JSON: a comma is due before the next member or element */
};

void write_bytes(t_WRITER *writer, const char *bytes, size_t length);
__attribute__((format(printf, 2, 3))) void write_text(t_WRITER *writer, const char *format, ...);
/* Text from outside, on one line: what may not be shown as it is becomes \xHH. */
void write_printable(t_WRITER *writer, const char *bytes, size_t length);
/* The same in double quotes, which then are escaped too. */
void write_quoted(t_WRITER *writer, const char *bytes, size_t length);
/* Zero-terminated, to be freed; null when there was no memory. */
char *finish_writing(t_WRITER *writer);

/* Members of an object; with a null name, elements of an array or the outermost value. What is no UTF-8 in a string
   becomes U+FFFD. */
void json_open(t_WRITER *writer, const char *name, char bracket);
void json_close(t_WRITER *writer, char bracket);
void json_string(t_WRITER *writer, const char *name, const char *bytes, size_t length);
void json_text(t_WRITER *writer, const char *name, const char *text); /* null for a null text */
void json_number(t_WRITER *writer, const char *name, int64_t value);
void json_bool(t_WRITER *writer, const char *name, bool value);
void json_null(t_WRITER *writer, const char *name);

#endif
