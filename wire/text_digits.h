/* SPDX-License-Identifier: MIT
 *
 * Short numbers in text into digits of a REAL, all characters at once. Only where the processor has SSE2, as those of
 * our 32-bit and 64-bit x86 programs do. */
#ifndef KA_WIRE_TEXT_DIGITS_H
#define KA_WIRE_TEXT_DIGITS_H

#include <stdint.h>
#include <string.h>

#include "wire/real_fault.h"
#include "wire/vector_bytes.h"

#ifdef __SSE2__

namespace wire {

inline constexpr int TEXT_WINDOW = 16;

/* Two decimals are one digit, and the point is between two digits: the number is 0.ddd... * 100^exponent. */
struct t_TEXT_DIGITS {
    __m128i digits; /* eight, in its lower half */
    uint32_t front; /* one before them, below 10; exponent does not count it */
    int exponent;
};

/* The count characters at text, 1 to 16, at the end of the window; zero bytes before them. Nothing outside the text
   is read: two loads overlap, and the first is moved to where the second begins. */
static inline __m128i load_window(const char *text, int count)
{
    if (count >= 8) {
        const __m128i first = _mm_sll_epi64(load_eight(text), bits_of_bytes(TEXT_WINDOW - count));
        return _mm_unpacklo_epi64(first, load_eight(text + count - 8));
    }
    if (count >= 4) {
        int first, last;
        memcpy(&first, text, sizeof first);
        memcpy(&last, text + count - 4, sizeof last);
        const __m128i moved = _mm_sll_epi32(_mm_cvtsi32_si128(first), bits_of_bytes(8 - count));
        return _mm_slli_si128(_mm_unpacklo_epi32(moved, _mm_cvtsi32_si128(last)), 8);
    }
    const auto at_place = [text, count](int i) {
        return uint32_t{static_cast<unsigned char>(text[i])} << 8 * (4 - count + i);
    };
    const uint32_t characters = at_place(0) | at_place(count / 2) | at_place(count - 1);
    return _mm_slli_si128(_mm_cvtsi32_si128(static_cast<int>(characters)), 12);
}

/* Takes out the point, which has places decimals behind it and is 0 in the window. Where places is even, what is
   before the point moves over it, and first, the decimal before the window, follows; where it is odd, what is behind
   it does, so that a zero comes in at the end. */
static inline __m128i take_out_point(__m128i window, int places, int first)
{
    const bool odd = places % 2 != 0;
    const int in_front = TEXT_WINDOW - places - (odd ? 1 : 0);
    const __m128i up = _mm_or_si128(_mm_slli_si128(window, 1), _mm_cvtsi32_si128(first));
    const __m128i before = odd ? window : up;
    const __m128i behind = odd ? _mm_srli_si128(window, 1) : window;
    return chosen(first_of(in_front), before, behind);
}

/* Sixteen decimals in pairs: 10 * tens + ones is the upper byte of (tens + 256 * ones) * (10 * 256 + 1). */
static inline __m128i join_pairs(__m128i decimals)
{
    const __m128i digits = _mm_srli_epi16(_mm_mullo_epi16(decimals, _mm_set1_epi16(10 * 256 + 1)), 8);
    return _mm_packus_epi16(digits, digits);
}

/* Whether the text is 1 to 16 decimals, and a point perhaps; if so, the digits are found. Zeros in front are not
   counted if it is longer. Compiled into its callers: most of them know that it is not. */
[[gnu::always_inline]] static inline bool find_text_digits(const char *text, int count, t_TEXT_DIGITS *found)
{
    for (; count > TEXT_WINDOW && *text == '0'; text++)
        count--;
    if (count < 1 || count > TEXT_WINDOW + 1) return false;
    const bool longer = count > TEXT_WINDOW;
    const __m128i window = longer ? load_window(text + 1, TEXT_WINDOW) : load_window(text, count);

    const __m128i values = _mm_sub_epi8(window, _mm_set1_epi8('0'));
    const __m128i is_decimal = _mm_cmpeq_epi8(_mm_min_epu8(values, _mm_set1_epi8(9)), values);
    const auto decimals = static_cast<unsigned>(_mm_movemask_epi8(is_decimal));
    const unsigned in_text = 0xFFFF0000U >> (longer ? TEXT_WINDOW : count) & 0xFFFF;
    const unsigned others = decimals ^ in_text;

    __m128i all = _mm_and_si128(values, is_decimal);
    int places = 0;
    found->front = 0;
    if (others != 0) {
        const int first = longer ? *text - '0' : 0;
        places = TEXT_WINDOW - 1 - __builtin_ctz(others);
        const bool is_point = text[count - 1 - places] == '.' && (others & (others - 1)) == 0;
        if (!is_point || decimals == 0 || first < 0 || first > 9) return false;
        all = take_out_point(all, places, first);
        if (places % 2 != 0) found->front = static_cast<uint32_t>(first);
    } else if (longer) {
        if (*text != '.') return false;
        places = TEXT_WINDOW;
    }
    found->digits = join_pairs(all);
    found->exponent = TEXT_WINDOW / 2 - ((places + 1) >> 1);
    return true;
}

/* Stores the REAL, front being 0. A zero has exponent 0, and its sign. */
static inline void store_text_digits(const t_TEXT_DIGITS &number, bool negative, void *record)
{
    const uint32_t nonzero = nonzero_bytes(number.digits) & 0xFF;
    uint32_t header = (negative ? uint32_t{REAL_MINUS} : uint32_t{REAL_PLUS}) << 8 * REAL_SIGN_AT;
    __m128i digits = number.digits;
    if (nonzero != 0) {
        const int zeros = __builtin_ctz(nonzero);
        const auto count = static_cast<uint32_t>(32 - __builtin_clz(nonzero) - zeros);
        digits = _mm_srl_epi64(digits, bits_of_bytes(zeros));
        header |= static_cast<uint16_t>(number.exponent - zeros) | count << 8 * REAL_COUNT_AT;
    }
    memcpy(record, &header, sizeof header);
    store_eight(static_cast<char *>(record) + REAL_DIGITS_AT, digits);
}

/* Whether the text is 1 to 16 characters, of which one may be a point and the others are decimals; if so, its REAL is
   stored: eight digits hold it, as there is none before the window. */
[[gnu::always_inline]] static inline bool read_short_real(const char *text, int count, bool negative, void *record)
{
    t_TEXT_DIGITS number;
    if (count > TEXT_WINDOW || !find_text_digits(text, count, &number)) return false;
    store_text_digits(number, negative, record);
    return true;
}

} // namespace wire

#else

namespace wire {

static inline bool read_short_real(const char *, int, bool, void *)
{
    return false;
}

} // namespace wire

#endif
#endif
