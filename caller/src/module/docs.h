/* SPDX-License-Identifier: MIT
 *
 * Documentation in a module: the records of ka/dll_doc.h, in a program of either word size. A function's record has a
 * word of the module's own, which may be anything: it counts only where it points to a sound record in the program's
 * file. */
#ifndef KA_CALLER_DOCS_H
#define KA_CALLER_DOCS_H

#include <stdint.h>

struct t_IMAGE;

/* Places of pointers to texts. */
struct t_DOC {
    uint64_t text;
    uint64_t arguments; /* that of the first one; 0 when there are none */
};

/* The record that the word at place points to; false when there is none. count: arguments of the function. */
bool find_doc(t_IMAGE *image, uint64_t place, int32_t count, t_DOC *doc);

/* Copies the text, zero-terminated, that the pointer at place leads to; its length, 0 when there is none. */
int32_t read_doc_text(t_IMAGE *image, uint64_t place, char *buffer, int32_t size);

#endif
