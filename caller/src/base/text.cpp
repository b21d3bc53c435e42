/* SPDX-License-Identifier: MIT
 *
 * See text.h. */
#include "text.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "wire/printable.h"

/* There is always room for the terminator. */
static bool make_room(t_TEXT *text, size_t more)
{
    if (text->failed) return false;
    const size_t needed = text->length + more + 1;
    if (needed <= text->room) return true;
    const size_t room = needed < 512 ? 1024 : 2 * needed;
    char *bytes = static_cast<char *>(realloc(text->bytes, room));
    text->failed = !bytes;
    if (!bytes) return false;
    text->bytes = bytes;
    text->room = room;
    return true;
}

void write_bytes(t_TEXT *text, const char *bytes, size_t length)
{
    if (!make_room(text, length)) return;
    memcpy(text->bytes + text->length, bytes, length);
    text->length += length;
}

void write_text(t_TEXT *text, const char *format, ...)
{
    char *more = nullptr;
    va_list values;
    va_start(values, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the line before it is not understood
    const int length = vasprintf(&more, format, values);
    va_end(values);
    if (length < 0) {
        text->failed = true;
        return;
    }
    write_bytes(text, more, static_cast<size_t>(length));
    free(more);
}

/* The character at the start of bytes; how many of them it has. */
static size_t write_shown(t_TEXT *text, const char *bytes, size_t length)
{
    const size_t shown = wire::printable_length(bytes, length);
    if (shown == 0)
        write_text(text, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(*bytes)));
    else
        write_bytes(text, bytes, shown);
    return shown > 0 ? shown : 1;
}

void write_printable(t_TEXT *text, const char *bytes, size_t length)
{
    for (size_t at = 0; at < length;)
        at += write_shown(text, bytes + at, length - at);
}

void write_quoted(t_TEXT *text, const char *bytes, size_t length)
{
    write_bytes(text, "\"", 1);
    for (size_t at = 0; at < length;) {
        const char byte = bytes[at];
        if (byte == '\n')
            write_bytes(text, "\\n", 2);
        else if (byte == '"' || byte == '\\')
            write_text(text, "\\%c", byte);
        else {
            at += write_shown(text, bytes + at, length - at);
            continue;
        }
        at++;
    }
    write_bytes(text, "\"", 1);
}

char *finish_text(t_TEXT *text)
{
    if (!make_room(text, 0)) {
        free(text->bytes);
        return nullptr;
    }
    text->bytes[text->length] = '\0';
    return text->bytes;
}
