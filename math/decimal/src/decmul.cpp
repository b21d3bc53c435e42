/* SPDX-License-Identifier: MIT
 *
 * Multiplication: the schoolbook product as far as the accumulator reaches. */
#include "dec_vector.h"

/* Adds the columns of the product that have a place among the digits, and carries through them; returns the carry out
   of the first one. A column has at most 8 products, so the sums are exact.
   KEPT: columns past the ninth place are left out with their carries, so the last digits of a long product may be too
   small: the square of 1.9999999999999 ends in 54 where the nearest record, 3.9999999999996, would end in 60.
   Test: Decmul.columns_past_the_ninth_place_are_left_out. */
static int multiply(const t_DECIMAL *a, const t_DECIMAL *b, uint8_t *digits)
{
    int columns[ACCSIZE] = {};
    for (int i = 0; i < dec_count(a); i++)
        for (int j = 0; j < dec_count(b) && i + j < ACCSIZE; j++)
            columns[i + j] += a->dec_dgts[i] * b->dec_dgts[j];
    int carry = 0;
    for (int i = ACCSIZE - 1; i >= 0; i--) {
        const int sum = columns[i] + carry;
        digits[i] = static_cast<uint8_t>(sum % DEC_BASE);
        carry = sum / DEC_BASE;
    }
    return carry;
}

/* For factors of any digits. */
[[gnu::noinline]] static int multiply_by_digits(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result)
{
    /* The carry is the first digit of the product: without it the first one is a place lower. */
    t_DECACC acc = {static_cast<int16_t>(a->dec_exp + b->dec_exp - 1), dec_common_sign(a, b), ACCSIZE, {}};
    const int carry = multiply(a, b, acc.dec_dgts);
    return dec_give(&acc, carry, result);
}

#ifdef __SSE2__
namespace {
/* Sums of products of pairs of digits, each in units of its last column: the product is
   front * 10^12 + first * 10^8 + second * 10^4 + third, in units of the ninth column (index 8). */
struct t_SUMS {
    uint32_t front;
    uint32_t first;
    uint32_t second;
    uint32_t third;
};
} // namespace

/* Two digits are taken for one of 10^4. The product of the pairs i and j has the columns 2(i + j) to 2(i + j) + 2:
   with i + j up to 3 it is wholly among the nine; with i + j = 4 its first column is, the product of the pairs' first
   digits. No sum exceeds 4 * 9999^2 + 3 * 99^2, so all are exact. both: the digits of a, then those of b. */
static t_SUMS multiply_pairs(__m128i both)
{
    constexpr int reversed = _MM_SHUFFLE(0, 1, 2, 3);
    const __m128i firsts = _mm_and_si128(both, _mm_set1_epi16(0xFF));
    const __m128i pairs = wire::quads_of_digits(both);
    const __m128i b_pairs = _mm_shufflelo_epi16(_mm_srli_si128(pairs, 8), reversed);
    const __m128i b_firsts = _mm_shufflelo_epi16(_mm_srli_si128(firsts, 8), reversed);
    /* i + j = 3, and after it the first digits of the pairs with i + j = 4. */
    const __m128i lower =
        _mm_madd_epi16(_mm_unpacklo_epi64(pairs, _mm_srli_epi64(firsts, 16)), _mm_unpacklo_epi64(b_pairs, b_firsts));
    /* i + j = 2, and after it i + j = 1. */
    const __m128i upper =
        _mm_madd_epi16(_mm_unpacklo_epi64(pairs, pairs),
                       _mm_unpacklo_epi64(_mm_srli_epi64(b_pairs, 16), _mm_srli_epi64(b_pairs, 32)));
    const __m128i low = _mm_unpacklo_epi32(lower, upper);
    const __m128i high = _mm_unpackhi_epi32(lower, upper);
    const __m128i low_sums = _mm_add_epi32(low, _mm_srli_si128(low, 8));
    const __m128i high_sums = _mm_add_epi32(high, _mm_srli_si128(high, 8));
    return {static_cast<uint32_t>(_mm_extract_epi16(pairs, 0)) * static_cast<uint32_t>(_mm_extract_epi16(pairs, 4)),
            static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(high_sums, 4))),
            static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(low_sums, 4))),
            static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_add_epi32(low_sums, high_sums)))};
}

/* The last four decimals of sum; the others are carried to the next one. */
static int four_of(uint32_t sum, uint32_t *next)
{
    const uint32_t carry = sum / dec_quad_base;
    *next += carry;
    return static_cast<int>(sum - carry * dec_quad_base);
}

/* For factors that begin with a digit other than 0, and have none above 99. False where rounding carries past the
   eighth digit, which is rare. */
static bool multiply_at_once(const t_DECIMAL *a, const t_DECIMAL *b, __m128i both, t_DECIMAL *result, int *code)
{
    t_SUMS sums = multiply_pairs(both);
    uint32_t highest = 0;
    const int rest = four_of(sums.third, &sums.second); /* columns 7 and 8 */
    const int fifth = four_of(sums.second, &sums.first);
    const int third = four_of(sums.first, &sums.front);
    const int first = four_of(sums.front, &highest);

    /* The carry out of the first column, and columns 0 to 6. */
    __m128i quads = _mm_cvtsi32_si128(static_cast<int>(highest) | first << 16);
    quads = _mm_insert_epi16(quads, static_cast<int16_t>(third), 2);
    quads = _mm_insert_epi16(quads, static_cast<int16_t>(fifth), 3);
    __m128i digits = wire::digits_of_quads(quads);
    int last = fifth % DEC_BASE;
    int guard = rest / DEC_BASE;
    int exp = static_cast<int16_t>(a->dec_exp + b->dec_exp - 1);
    constexpr int last_bits = 8 * (DEC_DIGITS - 1);
    if (highest >= DEC_BASE) {
        exp++;
    } else { /* no carry: column 7 is the eighth digit */
        last = guard;
        digits = _mm_or_si128(_mm_srli_epi64(digits, 8), _mm_slli_epi64(_mm_cvtsi32_si128(guard), last_bits));
        guard = rest - guard * DEC_BASE;
    }
    if (guard >= DEC_HALF) {
        if (last == DEC_BASE - 1) return false;
        digits = _mm_add_epi8(digits, _mm_slli_epi64(_mm_cvtsi32_si128(1), last_bits));
    }
    *code = dec_give_digits(exp, dec_common_sign(a, b), digits, result);
    return true;
}
#endif

int decmul(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result)
{
    if (dec_isnull(a) || dec_isnull(b)) return dec_give_null(result);
#ifdef __SSE2__
    const __m128i both = dec_load_both(a, b); /* that of a zero is not usual */
    int code = DEC_OK;
    if (dec_areusual(both) && multiply_at_once(a, b, both, result, &code)) return code;
#endif
    if (dec_iszero(a) || dec_iszero(b)) return dec_give_zero(result);
    return multiply_by_digits(a, b, result);
}
