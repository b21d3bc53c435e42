/* SPDX-License-Identifier: MIT
 *
 * A value as text in a field of fixed width: fixed notation where the integer part fits, else exponent notation, else
 * asterisks. Every write is bounded by the field. */
#include <stdlib.h>

#include "dec_vector.h"

namespace {
/* A field, or the part of one that is left, written from the left; characters that do not fit are dropped. */
struct t_FIELD {
    char *chars;
    int length;
    int used;
};
} // namespace

static void put(t_FIELD *field, char c)
{
    if (field->used < field->length) field->chars[field->used++] = c;
}

static void put_decimals(t_FIELD *field, const char *decimals, int count)
{
    for (int i = 0; i < count; i++)
        put(field, decimals[i]);
}

static void put_zeros(t_FIELD *field, int count)
{
    for (int i = 0; i < count; i++)
        put(field, '0');
}

static void fill(char *field, int length, char c)
{
    memset(field, c, static_cast<size_t>(length));
}

/* Decimal places that show the whole value.
   KEPT: the zeros after the point of a value below 0.01 are not counted, so 0.0012 has 2 places and shows as 0.00.
   Test: Dectoasc.automatic_places_do_not_count_leading_zero_places.
   KEPT: a zero at the end is left out only when there are two digits or more, so 0.5 shows as 0.50, 1.5 as 1.5.
   Test: Dectoasc.automatic_places_of_a_single_digit_keep_the_trailing_zero. */
static int places_of(const t_DECIMAL *value)
{
    const int count = dec_count(value);
    if (value->dec_exp >= count) return 0;
    const int places = 2 * (value->dec_exp < 0 ? count : count - value->dec_exp);
    return count > 1 && value->dec_dgts[count - 1] % 10 == 0 ? places - 1 : places;
}

/* The decimals for fixed notation. Where they are too wide for the field, places is lowered to make them fit.
   KEPT: when the places cannot make up for it, the decimals stay as they are and the field cuts them: 123.6 with 1
   place in 3 characters is 123, in 4 characters 124.
   Test: Dectoasc.too_many_surplus_characters_are_cut_off_unrounded.
   KEPT: the width leaves out the 0 before the point of a value below 1, so that one is cut by the field, not rounded.
   Test: Dectoasc.width_estimate_leaves_out_the_zero_before_the_point. */
static const char *fixed_decimals(const t_DECIMAL *value, int length, int *places, int *decpt)
{
    int sign = 0;
    const char *decimals = decfcvt(value, *places, decpt, &sign);
    const int count = static_cast<int>(strlen(decimals));
    const int width = count + (*decpt != count ? 1 : 0) + (dec_isnegative(value) ? 1 : 0);
    const int surplus = width - length;
    if (surplus <= 0 || surplus > *places) return decimals;
    *places -= surplus;
    return decfcvt(value, *places, decpt, &sign);
}

/* Returns the number of decimals that the integer part needs.
   KEPT: a zero with sign byte 0 shows its minus, "-0". Test: Dectoasc.zero_with_sign_byte_0_shows_its_minus. */
static int put_fixed(const t_DECIMAL *value, t_FIELD *field, int places)
{
    int decpt = 0;
    const char *decimals = fixed_decimals(value, field->length, &places, &decpt);
    const int count = static_cast<int>(strlen(decimals));
    const int whole = decpt < 0 ? 0 : decpt < count ? decpt : count;
    const int zeros = decpt >= 0 ? 0 : -decpt < places ? -decpt : places;

    if (dec_isnegative(value)) put(field, '-');
    if (decpt < 1) put(field, '0');
    put_decimals(field, decimals, whole);
    if (whole < count || zeros > 0) put(field, '.');
    put_zeros(field, zeros);
    put_decimals(field, decimals + whole, count - whole);
    return decpt;
}

/* Writes e and the exponent at the end of the field. Returns what is left of it for the mantissa; 0 also when the
   exponent itself does not fit. */
static int put_exponent(char *field, int length, int exponent)
{
    int at = length;
    int rest = abs(exponent);
    do {
        field[--at] = static_cast<char>('0' + rest % 10);
        rest /= 10;
    } while (rest > 0 && at > 0);
    if (exponent < 0 && at > 0) field[--at] = '-'; // GCOVR_EXCL_LINE: only integer parts that do not fit come here
    if (at > 0) field[--at] = 'e';
    return at;
}

static void put_mantissa(char *area, int length, const char *decimals)
{
    t_FIELD field = {area, length, 0};
    put(&field, decimals[0]);
    put(&field, '.');
    put_decimals(&field, decimals + 1, static_cast<int>(strlen(decimals)) - 1);
    put_zeros(&field, length - field.used); /* beyond the decimals that dececvt writes */
}

/* Takes the zeros before the e away, then the point; blanks follow the exponent instead. */
static void close_up(char *field, int length, int e)
{
    int end = e;
    while (end > 0 && field[end - 1] == '0')
        end--;
    if (end > 1 && field[end - 1] == '.') end--;
    memmove(field + end, field + e, static_cast<size_t>(length - e));
    fill(field + length - (e - end), e - end, ' ');
}

/* False when the value cannot be shown. decpt is the number of decimals before the point. */
static bool put_scientific(const t_DECIMAL *value, char *field, int length, int decpt)
{
    /* Rounding may carry into a new decimal, whose exponent is then another one, perhaps longer: once more with that.
       The bound is for values out of normal form, which can change between two exponents for ever. */
    for (int attempt = 0; attempt < 4; attempt++) {
        fill(field, length, ' ');
        const int e = put_exponent(field, length, decpt - 1);
        const int start = dec_isnegative(value) ? 1 : 0;
        const int room = e - start;
        if (room < 1) return false;

        const int written = decpt;
        int sign = 0;
        const char *decimals = dececvt(value, room > 1 ? room - 1 : 1, &decpt, &sign);
        if (decpt != written) continue;
        if (decimals[0] == '\0') return false; /* rounding overflows */

        if (start > 0) field[0] = '-';
        put_mantissa(field + start, room, decimals);
        close_up(field, length, e);
        return true;
    }
    return false;
}

#ifdef __SSE2__
/* ---- Fixed notation of up to 16 decimals in a wide enough field: all characters at once -------------------------
 */

static constexpr int vector_size = 16;

namespace {
/* Decimals in a row, whole of them before the point, and places after it, of which the row may lack the last one: the
   seventeenth of all. */
struct t_ROW {
    __m128i decimals;
    int whole;
    int places;
    char seventeenth;
};
} // namespace

/* The row with a point in it if there are places, then blanks. A sign is written first, and where there is none the
   text goes over it: whether there is one is not known before, and a branch would be guessed wrong. */
static void put_row(char *field, int length, bool negative, const t_ROW &row)
{
    const __m128i blanks = _mm_set1_epi8(' ');
    const __m128i characters = wire::characters_of(row.decimals);
    const int used = row.places > 0 ? row.whole + 1 + row.places : row.whole;
    const __m128i text = wire::with_point(characters, row.whole);
    const __m128i filled = wire::chosen(wire::first_of(used < vector_size ? used : vector_size), text, blanks);

    const int room = length - (negative ? 1 : 0);
    if (room > 2 * vector_size) fill(field, length, ' ');
    if (room > vector_size) wire::store_sixteen(field + length - vector_size, blanks);
    field[0] = '-';
    char *const start = field + (negative ? 1 : 0);
    if (room > vector_size) {
        wire::store_sixteen(start, filled);
        const int last = _mm_extract_epi16(characters, 7) >> 8;
        start[vector_size] = static_cast<char>(used > vector_size ? last : ' ');
        if (used > vector_size + 1) start[vector_size + 1] = row.seventeenth;
    } else {
        char all[vector_size];
        wire::store_sixteen(all, filled);
        memcpy(start, all, static_cast<size_t>(room));
    }
}

/* Does all of dectoasc for a value of normal form from 0.01 to 10^16 whose text fits, if it has no more than 16
   decimals, and what is cut off begins with a decimal below 5, which rounding leaves alone. */
static bool put_at_once(const t_DECIMAL *value, char *field, int length, int places)
{
    const int count = dec_count(value);
    if (count == 0 || value->dec_pos > DEC_POSITIVE || value->dec_exp < 0 || value->dec_exp > DEC_DIGITS)
        return false;
    const __m128i digits = dec_load(value, count);
    if (!dec_areusual(_mm_unpacklo_epi64(digits, digits)) || places > vector_size) return false;

    const int zeros = value->dec_dgts[0] < 10 ? 1 : 0;
    const int decpt = 2 * value->dec_exp - zeros;
    const int end = zeros + decpt + places; /* in the decimals of the digits */
    if (decpt + places < 1 || end > vector_size) return false;
    if (end < 2 * count && (end % 2 == 0 ? value->dec_dgts[end / 2] / 10 : value->dec_dgts[end / 2] % 10) >= 5)
        return false;

    const bool below_one = decpt < 1; /* then one zero is before the point, and all decimals of the digits after it */
    const bool negative = dec_isnegative(value);
    const int whole = below_one ? 1 : decpt;
    const int width = whole + (places > 0 ? 1 + places : 0) + (negative ? 1 : 0);
    if (width > length) return false;
    const __m128i decimals = wire::decimals_of(digits);
    const int last = _mm_extract_epi16(wire::characters_of(decimals), 7) >> 8;
    const __m128i in_row = wire::chosen(wire::first_of(below_one ? vector_size : 0), _mm_slli_si128(decimals, 1),
                                        wire::moved_to_front(decimals, zeros));
    put_row(field, length, negative, {in_row, whole, places, static_cast<char>(last)});
    return true;
}
#else
static bool put_at_once(const t_DECIMAL *, char *, int, int)
{
    return false;
}
#endif

/* For values and fields of any kind. */
[[gnu::noinline]] static void put_by_decimals(const t_DECIMAL *value, char *field, int length, int places)
{
    fill(field, length, ' ');
    if (dec_isnull(value)) return;

    t_FIELD fixed = {field, length, 0};
    const int decpt = put_fixed(value, &fixed, places);
    if (length - (dec_isnegative(value) ? 1 : 0) >= decpt) return;
    if (put_scientific(value, field, length, decpt)) return;

    /* For completeness: a value below 0.01 has no integer part, so its text is the fixed one and it never comes here.
     */
    const bool tiny = value->dec_exp < -1;
    fill(field, length, tiny ? ' ' : '*'); // GCOVR_EXCL_LINE: never tiny, see above
    if (tiny) field[0] = '0';              // GCOVR_EXCL_LINE: likewise
}

int dectoasc(const t_DECIMAL *value, char *field, int length, int places)
{
    if (length < 1) return DEC_OK;
    if (places < 0) places = places_of(value);
    if (!put_at_once(value, field, length, places)) put_by_decimals(value, field, length, places);
    return DEC_OK;
}
