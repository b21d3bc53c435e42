/* SPDX-License-Identifier: MIT
 *
 * Text from outside, of a module or a user, made fit to be shown. */
#ifndef KA_CALLER_PRINTABLE_H
#define KA_CALLER_PRINTABLE_H

#include <stddef.h>

/* Zero-terminated text in size bytes, with \xHH in place of bytes that may not be shown (wire/printable.h). The rest
   that does not fit is left out, whole characters and bytes of it. */
void copy_printable(char *shown, size_t size, const char *text);

#endif
