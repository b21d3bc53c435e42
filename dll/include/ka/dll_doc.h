/* SPDX-License-Identifier: MIT
 *
 * Documentation inside a module: the user word of a function's record (t_DLL_FUNC) may point to one of these records.
 * That word is the module's own, and may be anything; a reader follows it only to data of the module's file, and
 * believes only what begins with the magic number. ka/module.hpp writes these records. */
#ifndef KA_DLL_DOC_H
#define KA_DLL_DOC_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

/* The first 8 bytes of a record: the characters and two zero bytes. */
#define DLL_DOC_MAGIC "KA.DOC\0"

enum {
    DLL_DOC_VERSION = 1,
    DLL_DOC_TEXT_MAX = 4096 /* bytes of a text with its end; a reader ignores longer ones */
};

typedef struct t_DLL_DOC {
    char magic[8];                /* DLL_DOC_MAGIC */
    int32_t version;              /* DLL_DOC_VERSION; later ones add fields at the end */
    int32_t length;               /* of this record, bytes */
    const char *text;             /* about the function; null: nothing */
    const char *const *arguments; /* about each of its prototypes, null: nothing; or null: about none of them */
} t_DLL_DOC;

static_assert(offsetof(t_DLL_DOC, version) == 8, "t_DLL_DOC.version");
static_assert(offsetof(t_DLL_DOC, length) == 12, "t_DLL_DOC.length");
static_assert(offsetof(t_DLL_DOC, text) == 16, "t_DLL_DOC.text");
static_assert(offsetof(t_DLL_DOC, arguments) == 16 + sizeof(char *), "t_DLL_DOC.arguments");
static_assert(sizeof(t_DLL_DOC) == 16 + 2 * sizeof(char *), "t_DLL_DOC");

#endif
