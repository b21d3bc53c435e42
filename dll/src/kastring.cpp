/* SPDX-License-Identifier: MIT
 *
 * Counted strings: reading, building, copying, comparing and converting them. */
#include "ka/kastring.h"

#include <stdlib.h>
#include <string.h>

namespace {

/* Copies length bytes to dst at offset. memmove, because a part of a string may be copied over the string itself. */
void put(KaStr *dst, int32_t offset, const char *from, int32_t length)
{
    if (length > 0) memmove(dst->data + offset, from, static_cast<size_t>(length));
}

} // namespace

int32_t KaStrlen(const KaStr *s)
{
    return s->len;
}

int32_t KaMaxStrlen(const KaStr *s)
{
    return s->maxlen;
}

int32_t KaStrcat(KaStr *dst, const KaStr *src)
{
    const int32_t added = src->len; /* src may be dst */
    if (dst->maxlen < static_cast<int64_t>(dst->len) + added) return KASTR_NO_ROOM;
    put(dst, dst->len, src->data, added);
    dst->len += added;
    return KASTR_OK;
}

int32_t KaStrcpy(KaStr *dst, const KaStr *src)
{
    if (dst->maxlen < src->len) return KASTR_NO_ROOM;
    dst->len = src->len;
    put(dst, 0, src->data, src->len);
    return KASTR_OK;
}

int32_t KaStrcmp(const KaStr *a, const KaStr *b)
{
    const int32_t common = a->len < b->len ? a->len : b->len;
    const int order = common > 0 ? memcmp(a->data, b->data, static_cast<size_t>(common)) : 0;
    if (order == 0) return a->len - b->len;
    return order < 0 ? -1 : 1; /* memcmp's number is another one at another word size and on another processor */
}

KaStr *KaSubstr(const KaStr *s, int32_t pos, int32_t n)
{
    static KaStr part;
    if (pos < 1 || pos > s->len || n < 0) return nullptr;
    const int32_t rest = s->len - pos + 1;
    const int32_t length = n < rest ? n : rest;
    part = {length, length, s->data + (pos - 1)};
    return &part;
}

int32_t KaStr2str(const KaStr *s, char *buf)
{
    int32_t count = 0;
    while (count < s->len && s->data[count] != '\0') {
        buf[count] = s->data[count];
        count++;
    }
    buf[count] = '\0';
    return count;
}

int32_t str2KaStr(const char *str, KaStr *dst)
{
    const size_t length = strlen(str);
    if (dst->maxlen < 0 || static_cast<size_t>(dst->maxlen) < length) return KASTR_NO_ROOM;
    dst->len = static_cast<int32_t>(length);
    put(dst, 0, str, dst->len);
    return KASTR_OK;
}

KaStr *KaMkstr(int32_t size)
{
    static KaStr made;
    made.data = size < 0 ? nullptr : static_cast<char *>(malloc(static_cast<size_t>(size)));
    if (made.data == nullptr) return nullptr;
    made.maxlen = size;
    made.len = 0;
    return &made;
}
