/* SPDX-License-Identifier: MIT
 *
 * See writer.h. */
#include "writer.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "printable.h"

/* ---- Text ------------------------------------------------------------------------------------------------------ */

/* There is always room for the terminator. */
static bool make_room(t_WRITER *writer, size_t more)
{
    if (writer->failed) return false;
    const size_t needed = writer->length + more + 1;
    if (needed <= writer->room) return true;
    const size_t room = needed < 512 ? 1024 : 2 * needed;
    char *text = static_cast<char *>(realloc(writer->text, room));
    writer->failed = !text;
    if (!text) return false;
    writer->text = text;
    writer->room = room;
    return true;
}

void write_bytes(t_WRITER *writer, const char *bytes, size_t length)
{
    if (!make_room(writer, length)) return;
    memcpy(writer->text + writer->length, bytes, length);
    writer->length += length;
}

void write_text(t_WRITER *writer, const char *format, ...)
{
    char *text = nullptr;
    va_list values;
    va_start(values, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the line before it is not understood
    const int length = vasprintf(&text, format, values);
    va_end(values);
    if (length < 0) {
        writer->failed = true;
        return;
    }
    write_bytes(writer, text, static_cast<size_t>(length));
    free(text);
}

/* The character at the start of bytes; how many of them it has. */
static size_t write_shown(t_WRITER *writer, const char *bytes, size_t length)
{
    const size_t shown = printable_length(bytes, length);
    if (shown == 0)
        write_text(writer, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(*bytes)));
    else
        write_bytes(writer, bytes, shown);
    return shown > 0 ? shown : 1;
}

void write_printable(t_WRITER *writer, const char *bytes, size_t length)
{
    for (size_t at = 0; at < length;)
        at += write_shown(writer, bytes + at, length - at);
}

void write_quoted(t_WRITER *writer, const char *bytes, size_t length)
{
    write_bytes(writer, "\"", 1);
    for (size_t at = 0; at < length;) {
        const char byte = bytes[at];
        if (byte == '\n')
            write_bytes(writer, "\\n", 2);
        else if (byte == '"' || byte == '\\')
            write_text(writer, "\\%c", byte);
        else {
            at += write_shown(writer, bytes + at, length - at);
            continue;
        }
        at++;
    }
    write_bytes(writer, "\"", 1);
}

char *finish_writing(t_WRITER *writer)
{
    if (!make_room(writer, 0)) {
        free(writer->text);
        return nullptr;
    }
    writer->text[writer->length] = '\0';
    return writer->text;
}

/* ---- JSON ------------------------------------------------------------------------------------------------------ */

static unsigned code_of(const unsigned char *character, size_t length)
{
    if (length == 1) return *character;
    unsigned code = *character & (0xffU >> (length + 1));
    for (size_t i = 1; i < length; i++)
        code = code << 6 | (character[i] & 0x3fU);
    return code;
}

static void write_json_character(t_WRITER *writer, const unsigned char *character, size_t length)
{
    if (length == 0)
        write_bytes(writer, "\xef\xbf\xbd", 3);
    else if (*character == '"' || *character == '\\')
        write_text(writer, "\\%c", *character);
    else if (*character == '\n')
        write_bytes(writer, "\\n", 2);
    else if (is_obeyed(character, length))
        write_text(writer, "\\u%04x", code_of(character, length));
    else
        write_bytes(writer, reinterpret_cast<const char *>(character), length);
}

static void write_json_string(t_WRITER *writer, const char *bytes, size_t length)
{
    const unsigned char *at = reinterpret_cast<const unsigned char *>(bytes);
    write_bytes(writer, "\"", 1);
    while (length > 0) {
        const size_t character = character_length(at, length);
        write_json_character(writer, at, character);
        const size_t step = character > 0 ? character : 1;
        at += step;
        length -= step;
    }
    write_bytes(writer, "\"", 1);
}

static void begin_value(t_WRITER *writer, const char *name)
{
    if (writer->follows) write_bytes(writer, ",", 1);
    writer->follows = true;
    if (!name) return;
    write_json_string(writer, name, strlen(name));
    write_bytes(writer, ":", 1);
}

void json_open(t_WRITER *writer, const char *name, char bracket)
{
    begin_value(writer, name);
    write_bytes(writer, &bracket, 1);
    writer->follows = false;
}

void json_close(t_WRITER *writer, char bracket)
{
    write_bytes(writer, &bracket, 1);
    writer->follows = true;
}

void json_string(t_WRITER *writer, const char *name, const char *bytes, size_t length)
{
    begin_value(writer, name);
    write_json_string(writer, bytes, length);
}

void json_text(t_WRITER *writer, const char *name, const char *text)
{
    if (text)
        json_string(writer, name, text, strlen(text));
    else
        json_null(writer, name);
}

void json_number(t_WRITER *writer, const char *name, int64_t value)
{
    begin_value(writer, name);
    write_text(writer, "%lld", static_cast<long long>(value));
}

void json_bool(t_WRITER *writer, const char *name, bool value)
{
    begin_value(writer, name);
    write_text(writer, "%s", value ? "true" : "false");
}

void json_null(t_WRITER *writer, const char *name)
{
    begin_value(writer, name);
    write_bytes(writer, "null", 4);
}
