/* SPDX-License-Identifier: MIT
 *
 * The interpreter's strings: counted, not terminated, of fixed room. A record does not own its characters. In an
 * argument of kind String or StringArray they are in the shared segment, where a function edits them in place with
 * these helpers; after the call the new length goes back to the caller. Pointers must not be null. */
#ifndef KA_KASTRING_H
#define KA_KASTRING_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "ka/api.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct KaStr {
    int32_t maxlen; /* room for characters, bytes */
    int32_t len;    /* current length, bytes; the helpers keep 0 <= len <= maxlen */
    char *data;     /* the first character; characters can be zero bytes */
} KaStr;

static_assert(offsetof(KaStr, maxlen) == 0 && offsetof(KaStr, len) == 4 && offsetof(KaStr, data) == 8, "KaStr");
static_assert(sizeof(KaStr) == 8 + sizeof(char *), "KaStr");

/* Results of the copying helpers. */
enum {
    KASTR_OK = 0,
    KASTR_NO_ROOM = 18 /* the destination's maxlen is too small; it is left entirely unchanged */
};

/* KaStrlen: the current length; KaMaxStrlen: the room. Bytes. */
KA_API int32_t KaStrlen(const KaStr *s);
KA_API int32_t KaMaxStrlen(const KaStr *s);

/* Appends src to dst; a string may be appended to itself. KASTR_OK or KASTR_NO_ROOM. */
KA_API int32_t KaStrcat(KaStr *dst, const KaStr *src);

/* Sets dst to src. KASTR_OK or KASTR_NO_ROOM. */
KA_API int32_t KaStrcpy(KaStr *dst, const KaStr *src);

/* Negative, zero or positive if a sorts before, with or after b: bytes are compared unsigned, and a string sorts
   before every longer string that begins with it. */
KA_API int32_t KaStrcmp(const KaStr *a, const KaStr *b);

/* The part of s that begins at pos (1 is the first character) and has n characters, or fewer where s ends: a view
   whose room is its length, so it can be overwritten in place but not extended. Null when pos is not 1 to len, or n
   is negative. The record returned is static; the next call overwrites it. */
KA_API KaStr *KaSubstr(const KaStr *s, int32_t pos, int32_t n);

/* Copies s into buf up to its end or its first zero byte, and terminates: buf needs s->len + 1 bytes. Returns the
   number of characters stored, the terminator not counted. */
KA_API int32_t KaStr2str(const KaStr *s, char *buf);

/* Sets dst to zero-terminated text. KASTR_OK or KASTR_NO_ROOM. */
KA_API int32_t str2KaStr(const char *str, KaStr *dst);

/* A new empty string with room for size bytes from malloc, which the caller frees with free(data); null when there is
   no memory. The record returned is static; the next call overwrites it. */
KA_API KaStr *KaMkstr(int32_t size);

#ifdef __cplusplus
}
#endif

#endif
