/* SPDX-License-Identifier: MIT
 *
 * Addition and subtraction: column by column in the accumulator, the larger magnitude below the smaller one; or the
 * same with all columns at once. */
#include "dec_vector.h"

static int compare_magnitudes(const t_DECIMAL *a, const t_DECIMAL *b)
{
    return a->dec_exp != b->dec_exp ? a->dec_exp - b->dec_exp : dec_compare_digits(a, b);
}

static t_DECACC accumulator_of(const t_DECIMAL *x)
{
    const int count = dec_count(x);
    t_DECACC acc = {x->dec_exp, x->dec_pos, static_cast<int8_t>(count), {}};
    memcpy(acc.dec_dgts, x->dec_dgts, static_cast<size_t>(count));
    return acc;
}

/* Adds x, moved shift places (0 to 8) towards the end, to the accumulator, or subtracts it when the signs differ.
   Returns the carry out of the first column: 0 or 1, and -1 only for operands out of normal form.
   KEPT: digits of x past the guard digit are cut off first, so 1 - 1.99e-16 gives 0.9999999999999999, where the
   nearest value would be 0.9999999999999998.
   Test: Decadd.digits_below_the_guard_position_are_cut_off_first. */
static int add_columns(t_DECACC *acc, const t_DECIMAL *x, int shift)
{
    const int sign = x->dec_pos == acc->dec_pos ? 1 : -1;
    const int end = dec_count(x) + shift < ACCSIZE ? dec_count(x) + shift : ACCSIZE;
    if (acc->dec_ndgts < end) acc->dec_ndgts = static_cast<int8_t>(end);
    int carry = 0;
    for (int i = end - 1; i >= 0; i--) {
        const int digit = i >= shift ? sign * x->dec_dgts[i - shift] : 0;
        const int sum = acc->dec_dgts[i] + digit + carry;
        carry = sum < 0 ? -1 : sum >= DEC_BASE ? 1 : 0;
        acc->dec_dgts[i] = static_cast<uint8_t>(sum - carry * DEC_BASE);
    }
    return carry;
}

/* For operands of any digits. */
static int add_by_columns(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result)
{
    const bool a_is_larger = compare_magnitudes(a, b) >= 0;
    const t_DECIMAL *larger = a_is_larger ? a : b;
    const t_DECIMAL *smaller = a_is_larger ? b : a;
    const int shift = larger->dec_exp - smaller->dec_exp;
    if (shift >= ACCSIZE) return dec_give_copy(larger, result); /* smaller lies wholly below the guard digit */

    t_DECACC acc = accumulator_of(larger);
    const int carry = add_columns(&acc, smaller, shift);
    return dec_give(&acc, carry, result);
}

static int give_copy(const t_DECIMAL *x, uint8_t pos, t_DECIMAL *result)
{
    *result = *x;
    result->dec_pos = pos;
    return DEC_OK;
}

#ifdef __SSE2__
/* ---- All columns at once: the digits in the low half of a vector, the last one in the lowest byte ---------------
 */

/* Added to every digit, it makes a sum of 100 or more leave its byte, as a carry into the next one. */
static constexpr int byte_excess = 256 - DEC_BASE;

static constexpr uint32_t first_digit = 1U << (DEC_DIGITS - 1); /* the bit of the first digit */

/* The bytes of both halves the other way round. */
static __m128i turned(__m128i x)
{
    constexpr int reversed = _MM_SHUFFLE(0, 1, 2, 3);
    const __m128i pairs = _mm_or_si128(_mm_slli_epi16(x, 8), _mm_srli_epi16(x, 8));
    return _mm_shufflehi_epi16(_mm_shufflelo_epi16(pairs, reversed), reversed);
}

/* Takes the excess back out of the bytes that did not carry, or, after a subtraction, out of those that borrowed.
   Both hold 156 to 255 and become 0 to 99; the others hold 0 to 99 and would become 100 to 199. */
static __m128i without_excess(__m128i sum)
{
    return _mm_min_epu8(sum, _mm_sub_epi8(sum, _mm_set1_epi8(static_cast<char>(byte_excess))));
}

static __m128i moved_up(__m128i digits, int count)
{
    return _mm_sll_epi64(digits, _mm_cvtsi32_si128(8 * count));
}

static uint32_t last_of(__m128i digits)
{
    return static_cast<uint32_t>(_mm_cvtsi128_si32(digits)) & 0xFF;
}

/* Rounds digits, the first not 0, by the guard digit, and gives them. */
static int give_rounded(int exp, uint8_t pos, __m128i digits, uint32_t guard, t_DECIMAL *result)
{
    if (guard >= DEC_HALF) {
        const __m128i one = _mm_cvtsi32_si128(1);
        if (last_of(digits) < DEC_BASE - 1) {
            digits = _mm_add_epi64(digits, one);
        } else {
            const __m128i excess = _mm_set1_epi8(static_cast<char>(byte_excess));
            const __m128i sum = _mm_add_epi64(_mm_add_epi64(digits, excess), one);
            digits = without_excess(sum);
            if ((static_cast<uint32_t>(_mm_movemask_epi8(sum)) & first_digit) == 0) { /* a carry out of the first */
                digits = moved_up(one, DEC_DIGITS - 1);
                exp++;
            }
        }
    }
    return dec_give_digits(exp, pos, turned(digits), result);
}

/* A carry out of the first column becomes the first digit, and the eighth one the guard digit. */
static int give_sum(int exp, uint8_t pos, __m128i digits, __m128i aligned, uint32_t guard, t_DECIMAL *result)
{
    const __m128i excess = _mm_set1_epi8(static_cast<char>(byte_excess));
    const __m128i sum = _mm_add_epi64(_mm_add_epi64(digits, excess), aligned);
    digits = without_excess(sum);
    if ((static_cast<uint32_t>(_mm_movemask_epi8(sum)) & first_digit) == 0) {
        guard = last_of(digits);
        digits = _mm_or_si128(_mm_srli_epi64(digits, 8), moved_up(_mm_cvtsi32_si128(1), DEC_DIGITS - 1));
        exp++;
    }
    return give_rounded(exp, pos, digits, guard, result);
}

/* Zero digits in front go; only if there are none the guard digit is rounded away. */
static int give_difference(int exp, uint8_t pos, __m128i digits, __m128i aligned, uint32_t guard, t_DECIMAL *result)
{
    const __m128i borrow = _mm_cvtsi32_si128(guard > 0 ? 1 : 0);
    digits = without_excess(_mm_sub_epi64(_mm_sub_epi64(digits, aligned), borrow));
    if (guard > 0) guard = DEC_BASE - guard;
    const uint32_t others = dec_nonzero(digits);
    if (others >= first_digit) return give_rounded(exp, pos, digits, guard, result);
    if (others == 0 && guard == 0) return dec_give_copy(&c_dec_zero, result);
    const int zeros = others == 0 ? DEC_DIGITS : __builtin_clz(others) - (32 - DEC_DIGITS);
    digits = _mm_or_si128(moved_up(digits, zeros), moved_up(_mm_cvtsi32_si128(static_cast<int>(guard)), zeros - 1));
    return dec_give_digits(exp - zeros, pos, turned(digits), result);
}

/* For operands that begin with a digit other than 0, and have none above 99: the larger one then has no smaller
   digits in front, so nothing is borrowed from before its first digit. both: the digits of a, then those of b. */
static int add_at_once(const t_DECIMAL *a, const t_DECIMAL *b, uint8_t b_pos, __m128i both, t_DECIMAL *result)
{
    const __m128i x = turned(both);
    const __m128i y = _mm_shuffle_epi32(x, _MM_SHUFFLE(1, 0, 3, 2));
    /* Bits of the digits of a that are above those of b, then the other way round; the highest is the first digit's.
     */
    const auto above = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpgt_epi8(x, y)));
    int shift = a->dec_exp - b->dec_exp;
    const bool b_is_larger = shift < 0 || (shift == 0 && (above & 0xFF) < above >> DEC_DIGITS);
    const t_DECIMAL *larger = b_is_larger ? b : a;
    const uint8_t pos = b_is_larger ? b_pos : a->dec_pos;
    if (b_is_larger) shift = -shift;
    if (shift >= ACCSIZE) return give_copy(larger, pos, result); /* smaller lies wholly below the guard digit */

    const __m128i exchanged = _mm_and_si128(_mm_xor_si128(x, y), _mm_set1_epi32(b_is_larger ? -1 : 0));
    const __m128i smaller = _mm_xor_si128(y, exchanged);
    /* A shift by all bits, or by more, gives 0; that by -8 is one by very many. */
    const __m128i aligned = _mm_srl_epi64(smaller, _mm_cvtsi32_si128(8 * shift));
    const uint32_t guard = last_of(_mm_srl_epi64(smaller, _mm_cvtsi32_si128(8 * shift - 8)));
    const __m128i digits = _mm_xor_si128(x, exchanged);
    return a->dec_pos == b_pos ? give_sum(larger->dec_exp, pos, digits, aligned, guard, result)
                               : give_difference(larger->dec_exp, pos, digits, aligned, guard, result);
}
#endif

/* b with the sign byte b_pos. Not a copy of b, which would be read before it has left the processor's store buffer.
 */
static int add(const t_DECIMAL *a, const t_DECIMAL *b, uint8_t b_pos, t_DECIMAL *result)
{
    if (dec_isnull(a) || b_pos == DEC_NULL) return dec_give_null(result);
    /* KEPT: with a zero the other operand is the result as it is, even if it is not in normal form.
       Test: Decadd.zero_operand_gives_the_other_one_as_it_is. */
    if (dec_iszero(a)) return give_copy(b, b_pos, result);
    if (dec_iszero(b)) return dec_give_copy(a, result);
#ifdef __SSE2__
    const __m128i both = dec_load_both(a, b);
    if (dec_areusual(both)) return add_at_once(a, b, b_pos, both, result);
#endif
    t_DECIMAL other = *b;
    other.dec_pos = b_pos;
    return add_by_columns(a, &other, result);
}

int decadd(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result)
{
    return add(a, b, b->dec_pos, result);
}

int decsub(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result)
{
    if (dec_isnull(a) || dec_isnull(b)) return dec_give_null(result);
    if (dec_iszero(b)) return dec_give_copy(a, result);
    return add(a, b, b->dec_pos ^ 1, result);
}
