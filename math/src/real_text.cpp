/* SPDX-License-Identifier: MIT
 *
 * REAL values from text and to text. The decimal library accepts more than a number (blanks, a stray last character,
 * no digits at all); here the whole text must be one. */
#include <string.h>

#include "ka/number_text.hpp"
#include "ka/real.h"
#include "ka/real_text.h"
#include "wire/general_text.h"
#include "wire/text_digits.h"

/* Significant decimals of the longest REAL: all of them are shown. */
enum { ALL_DECIMALS = 2 * DEC_DIGITS };

enum { DONE = 0, REFUSED = 8 }; /* KA_DONE and KA_ARGUMENT of ka/caller.h */

namespace {

using ka::detail::Span;

bool accept_digits(Span *text)
{
    const char *begin = text->at;
    while (text->at < text->end && *text->at >= '0' && *text->at <= '9')
        text->at++;
    return text->at > begin;
}

bool is_number(Span text)
{
    text.accept('+', '-');
    bool digits = accept_digits(&text);
    if (text.accept('.', '.') && accept_digits(&text)) digits = true;
    if (!digits) return false;
    if (text.accept('e', 'E')) {
        text.accept('+', '-');
        if (!accept_digits(&text)) return false;
    }
    return text.at == text.end;
}

int read_number(const char *text, int32_t length, t_DECIMAL *value)
{
    char buffer[ka::detail::short_number_room];
    const int shortened = ka::detail::shorten_number(text, length, buffer);
    return shortened > 0 ? deccvasc(buffer, shortened, value) : deccvasc(text, length, value);
}

/* A sign, then up to 16 characters that are decimals and perhaps a point: most numbers. In few steps, so it is
   compiled into both functions. Test: RealRead.every_short_text_in_few_steps_is_what_it_is_plainly */
[[gnu::always_inline]] inline bool read_short(const char *text, int32_t length, t_DECIMAL *value)
{
    if (length < 1) return false;
    const bool negative = *text == '-';
    const int32_t signs = negative || *text == '+' ? 1 : 0;
    return wire::read_short_real(text + signs, length - signs, negative, value);
}

/* Any other text. */
[[gnu::noinline]] int32_t read_long(const char *text, int32_t length, t_DECIMAL *value, int32_t *exact)
{
    const bool done =
        is_number({text, length > 0 ? text + length : text}) && read_number(text, length, value) == DEC_OK;
    if (!done) *value = {0, DEC_NULL, 0, {}};
    if (exact) *exact = done && ka::detail::is_exact(text, length, *value);
    return done ? DONE : REFUSED;
}

} // namespace

int32_t ka_real_read(const char *text, int32_t length, t_DECIMAL *value, int32_t *exact)
{
    if (!read_short(text, length, value)) return read_long(text, length, value, exact);
    if (exact) *exact = 1;
    return DONE;
}

int32_t ka_real_from_text(const char *text, int32_t length, t_DECIMAL *value)
{
    return read_short(text, length, value) ? DONE : read_long(text, length, value, nullptr);
}

/* What m_gcvt gives: there is nothing to round. Test: RealText.is_what_the_number_library_gives */
char *ka_real_to_text(const t_DECIMAL *value, char text[KA_REAL_TEXT])
{
    char room[ALL_DECIMALS];
    wire::t_SHOWN shown;
    if (wire::show_all(value, room, &shown)) {
        wire::put_general(&shown, ALL_DECIMALS, text);
        return text;
    }
    if (value->dec_pos == DEC_NULL) return static_cast<char *>(memcpy(text, "null", sizeof "null"));
    return m_gcvt(value, ALL_DECIMALS, text);
}
