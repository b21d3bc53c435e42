/* SPDX-License-Identifier: MIT
 *
 * REAL values from text and to text. The decimal library accepts more than a number (blanks, a stray last character,
 * no digits at all); here the whole text must be one. */
#include <string.h>

#include "ka/caller.h"
#include "ka/number_text.hpp"
#include "ka/real.h"
#include "wire/sure_real.h"

/* Significant decimals of the longest REAL: all of them are shown. */
enum { ALL_DECIMALS = 2 * DEC_DIGITS };

static constexpr int decimals_of_short = 15;

static constexpr uint64_t powers_of_ten[decimals_of_short] = {
    1,         10,         100,         1000,         10000,         100000,         1000000,        10000000,
    100000000, 1000000000, 10000000000, 100000000000, 1000000000000, 10000000000000, 100000000000000};

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

/* A sign, 1 to 15 decimals and at most one point: most numbers. False for all others, zero among them. */
bool read_short(Span text, t_DECIMAL *value)
{
    const bool negative = text.accept('-', '-');
    if (!negative) text.accept('+', '+');
    if (text.end - text.at > decimals_of_short + 1) return false;
    uint64_t decimals = 0;
    int significant = 0;
    const char *point = nullptr;
    for (const char *at = text.at; at < text.end; at++) {
        const auto decimal = static_cast<unsigned>(*at - '0');
        if (decimal <= 9) {
            decimals = decimals * 10 + decimal;
            significant += decimals != 0 ? 1 : 0;
        } else if (*at == '.' && point == nullptr) {
            point = at;
        } else {
            return false;
        }
    }
    if (decimals == 0 || text.end - text.at > decimals_of_short + (point ? 1 : 0)) return false;
    const int places = point ? static_cast<int>(text.end - point) - 1 : 0;
    const uint64_t fifteen = decimals * powers_of_ten[decimals_of_short - significant];
    wire::store_real_of({fifteen, significant - places}, negative, value);
    return true;
}

} // namespace

int32_t ka_real_read(const char *text, int32_t length, t_DECIMAL *value, int32_t *exact)
{
    const Span all = {text, length > 0 ? text + length : text};
    const bool done = read_short(all, value) || (is_number(all) && read_number(text, length, value) == DEC_OK);
    if (!done) *value = {0, DEC_NULL, 0, {}};
    if (exact) *exact = done && ka::detail::is_exact(text, length, *value);
    return done ? KA_DONE : KA_ARGUMENT;
}

int32_t ka_real_from_text(const char *text, int32_t length, t_DECIMAL *value)
{
    return ka_real_read(text, length, value, nullptr);
}

char *ka_real_to_text(const t_DECIMAL *value, char text[KA_REAL_TEXT])
{
    if (value->dec_pos == DEC_NULL) return static_cast<char *>(memcpy(text, "null", sizeof "null"));
    return m_gcvt(value, ALL_DECIMALS, text);
}
