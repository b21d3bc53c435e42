/* SPDX-License-Identifier: MIT
 *
 * See json.h. */
#include "json.h"

#include <string.h>

#include "wire/printable.h"

static void write_json_character(t_TEXT *text, const unsigned char *character, size_t length)
{
    if (length == 0)
        write_bytes(text, "\xef\xbf\xbd", 3);
    else if (*character == '"' || *character == '\\')
        write_text(text, "\\%c", *character);
    else if (*character == '\n')
        write_bytes(text, "\\n", 2);
    else if (wire::is_obeyed(character, length))
        write_text(text, "\\u%04x", wire::code_of(character, length));
    else
        write_bytes(text, reinterpret_cast<const char *>(character), length);
}

static void write_json_string(t_TEXT *text, const char *bytes, size_t length)
{
    const unsigned char *at = reinterpret_cast<const unsigned char *>(bytes);
    write_bytes(text, "\"", 1);
    while (length > 0) {
        const size_t character = wire::character_length(at, length);
        write_json_character(text, at, character);
        const size_t step = character > 0 ? character : 1;
        at += step;
        length -= step;
    }
    write_bytes(text, "\"", 1);
}

static void begin_value(t_JSON *json, const char *name)
{
    if (json->follows) write_bytes(&json->text, ",", 1);
    json->follows = true;
    if (!name) return;
    write_json_string(&json->text, name, strlen(name));
    write_bytes(&json->text, ":", 1);
}

void json_open(t_JSON *json, const char *name, char bracket)
{
    begin_value(json, name);
    write_bytes(&json->text, &bracket, 1);
    json->follows = false;
}

void json_close(t_JSON *json, char bracket)
{
    write_bytes(&json->text, &bracket, 1);
    json->follows = true;
}

void json_string(t_JSON *json, const char *name, const char *bytes, size_t length)
{
    begin_value(json, name);
    write_json_string(&json->text, bytes, length);
}

void json_text(t_JSON *json, const char *name, const char *text)
{
    if (text)
        json_string(json, name, text, strlen(text));
    else
        json_null(json, name);
}

void json_number(t_JSON *json, const char *name, int64_t value)
{
    begin_value(json, name);
    write_text(&json->text, "%lld", static_cast<long long>(value));
}

void json_bool(t_JSON *json, const char *name, bool value)
{
    begin_value(json, name);
    write_text(&json->text, "%s", value ? "true" : "false");
}

void json_null(t_JSON *json, const char *name)
{
    begin_value(json, name);
    write_bytes(&json->text, "null", 4);
}
