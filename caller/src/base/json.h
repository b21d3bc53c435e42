/* SPDX-License-Identifier: MIT
 *
 * JSON as a text that grows. */
#ifndef KA_CALLER_JSON_H
#define KA_CALLER_JSON_H

#include <stddef.h>
#include <stdint.h>

#include "text.h"

struct t_JSON {
    t_TEXT text;
    bool follows; /* a comma is due before the next member or element */
};

/* Members of an object; with a null name, elements of an array or the outermost value. Bytes in a string that are not
   UTF-8 become U+FFFD. */
void json_open(t_JSON *json, const char *name, char bracket);
void json_close(t_JSON *json, char bracket);
void json_string(t_JSON *json, const char *name, const char *bytes, size_t length);
void json_text(t_JSON *json, const char *name, const char *text); /* null for a null text */
void json_number(t_JSON *json, const char *name, int64_t value);
void json_bool(t_JSON *json, const char *name, bool value);
void json_null(t_JSON *json, const char *name);

#endif
