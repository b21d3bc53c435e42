/* SPDX-License-Identifier: MIT
 *
 * REAL values from text and to text. The decimal library accepts more than a number (blanks, a stray last character,
 * no digits at all); here the whole text must be one. */
#include "host.h"

#include <string.h>

#include "ka/real.h"

/* Significant decimals of the longest REAL: all of them are shown. */
enum { ALL_DECIMALS = 2 * DEC_DIGITS };

namespace {
struct t_SCAN {
    const char *at;
    const char *end;
};
} // namespace

static bool accept(t_SCAN *scan, char a, char b)
{
    if (scan->at == scan->end || (*scan->at != a && *scan->at != b)) return false;
    scan->at++;
    return true;
}

static int accept_digits(t_SCAN *scan)
{
    int count = 0;
    for (; scan->at < scan->end && *scan->at >= '0' && *scan->at <= '9'; scan->at++)
        count++;
    return count;
}

static bool is_number(const char *text, int32_t length)
{
    t_SCAN scan = {text, text + length};
    accept(&scan, '+', '-');
    int digits = accept_digits(&scan);
    if (accept(&scan, '.', '.')) digits += accept_digits(&scan);
    if (digits == 0) return false;
    if (accept(&scan, 'e', 'E')) {
        accept(&scan, '+', '-');
        if (accept_digits(&scan) == 0) return false;
    }
    return scan.at == scan.end;
}

int32_t ka_real_from_text(const char *text, int32_t length, t_DECIMAL *value)
{
    if (is_number(text, length > 0 ? length : 0) && deccvasc(text, length, value) == DEC_OK) return KA_DONE;
    *value = {0, DEC_NULL, 0, {}};
    return KA_ARGUMENT;
}

char *ka_real_to_text(const t_DECIMAL *value, char text[KA_REAL_TEXT])
{
    if (value->dec_pos == DEC_NULL) return static_cast<char *>(memcpy(text, "null", sizeof "null"));
    return m_gcvt(value, ALL_DECIMALS, text);
}
