/* SPDX-License-Identifier: MIT
 *
 * Mistakes of a test, which end it: no caller could send such a call. */
#include <stdio.h>
#include <stdlib.h>

#include "ka/module_test.h"
#include "ka/real_text.h"

void ka_test_refuse(const char *what)
{
    fprintf(stderr, "ka: unit test: %s\n", what);
    abort();
}

t_DECIMAL ka_test_decimal(const char *text, int32_t length)
{
    t_DECIMAL real;
    if (ka_real_from_text(text, length, &real) == 0) return real;
    char what[80];
    snprintf(what, sizeof what, "\"%.*s\" is not a REAL", length < 40 ? length : 40, text);
    ka_test_refuse(what);
}
