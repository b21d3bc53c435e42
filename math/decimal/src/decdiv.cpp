/* SPDX-License-Identifier: MIT
 *
 * Division: long division in base 100. Every quotient digit is first estimated, never too small, and then corrected
 * downwards. */
#include "dec_vector.h"

/* In all of these r is the remainder, ACCSIZE digits, and the divisor b has its first digit under digit k. */

/* How many digits of b are under the remainder. */
static int digits_inside(const t_DECIMAL *b, int k)
{
    return dec_count(b) < ACCSIZE - k ? dec_count(b) : ACCSIZE - k;
}

/* From the leading digits, where the added 1 covers all that follow. Not too small for a b in normal form; a b
   that begins with zeros gives a quotient without meaning, but no more than that.
   KEPT: only one digit in front of k is looked at. A remainder that was cut off can come to be b or a little more,
   and where b begins with 99 that is a 1 two places in front: 98.99999999999999 / 99.99999999999999 gives 0.989999,
   where it should be 0.99. Test: Decdiv.digit_two_places_in_front_is_out_of_sight. */
static int estimate(const int *r, const t_DECIMAL *b, int k)
{
    const int divisor = dec_digit(b, 0) * DEC_BASE + dec_digit(b, 1);
    if (divisor == 0) return DEC_BASE - 1;
    const int next = k + 1 < ACCSIZE ? r[k + 1] : 0;
    const bool long_remainder = k > 0 && r[k - 1] != 0;
    const int dividend = long_remainder ? (r[k - 1] * DEC_BASE + r[k] + 1) * DEC_BASE : r[k] * DEC_BASE + next + 1;
    return dividend / divisor < DEC_BASE ? dividend / divisor : DEC_BASE - 1;
}

/* Subtracts q * b; returns what is borrowed from the digit in front of k, 0 or below.
   KEPT: of the products past the ninth place only the first counts, and of that only whole units, so the last digits
   of a quotient may be too large: 1 / 1.458986 gives 0.6854075364671082, where 0.6854075364671079 would be nearest.
   Test: Decdiv.remainder_is_kept_to_nine_places. */
static int subtract(int *r, const t_DECIMAL *b, int k, int q)
{
    const int inside = digits_inside(b, k);
    int borrow = -(dec_digit(b, inside) * q / DEC_BASE);
    for (int j = inside - 1; j >= 0; j--) {
        const int left = r[k + j] - b->dec_dgts[j] * q + borrow;
        borrow = -((DEC_BASE - 1 - left) / DEC_BASE); /* rounds down: left is below DEC_BASE */
        r[k + j] = left - borrow * DEC_BASE;
    }
    return borrow;
}

/* Adds b, returns the carry into the digit in front of k.
   KEPT: digits past the ninth place are not given back.
   Test: Decdiv.correction_gives_back_only_what_is_inside. */
static int add_back(int *r, const t_DECIMAL *b, int k)
{
    int carry = 0;
    for (int j = digits_inside(b, k) - 1; j >= 0; j--) {
        const int sum = r[k + j] + b->dec_dgts[j] + carry;
        carry = sum >= DEC_BASE ? 1 : 0;
        r[k + j] = sum - carry * DEC_BASE;
    }
    return carry;
}

/* The quotient digit at k, taken off the remainder. */
static int divide_at(int *r, const t_DECIMAL *b, int k)
{
    int q = estimate(r, b, k);
    if (q == 0) return 0;
    int front = (k > 0 ? r[k - 1] : 0) + subtract(r, b, k, q);
    while (front < 0 && q > 0) {
        front += add_back(r, b, k);
        q--;
    }
    return q;
}

/* For operands of any digits. */
[[gnu::noinline]] static int divide_by_digits(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result)
{
    int r[ACCSIZE];
    for (int i = 0; i < ACCSIZE; i++)
        r[i] = dec_digit(a, i);
    t_DECACC acc = {static_cast<int16_t>(a->dec_exp - b->dec_exp + 1), dec_common_sign(a, b), ACCSIZE, {}};
    /* KEPT: a first digit of 0 leaves eight digits and no guard digit: 2 / 3 ends in 6, where one would expect 7.
       Test: Decdiv.first_digit_of_zero_costs_the_guard_digit. */
    for (int k = 0; k < ACCSIZE; k++)
        acc.dec_dgts[k] = static_cast<uint8_t>(divide_at(r, b, k));
    return dec_give(&acc, 0, result);
}

#ifdef __SSE2__
/* ---- All digits at once, where the cut-off remainders of the digit loop cannot make a difference ----------------
 */

namespace {
/* The exact quotient of two numbers of 16 decimals, cut off after 16 decimals of its own: dividend * 10^14 =
   quotient * divisor + rest, the dividend being a, or 100 * a if a is the smaller one. */
struct t_QUOTIENT {
    uint64_t divisor;
    uint64_t quotient; /* 10^14 or more, below 10^16 */
    uint64_t rest;
    bool smaller;
};
} // namespace

static constexpr uint64_t ten_to_12 = 1000000000000;
static constexpr uint64_t ten_to_14 = 100 * ten_to_12;
static constexpr uint64_t ten_to_16 = 10000 * ten_to_12;

static uint64_t number_of(__m128i halves)
{
    return uint64_t{static_cast<uint32_t>(_mm_cvtsi128_si32(halves))} * dec_half_base +
           static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(halves, 4)));
}

/* In two words, each converted by itself: 32-bit processors have no other way that keeps to them. */
static double double_of(uint64_t number)
{
    return static_cast<double>(static_cast<int32_t>(number >> 32)) * 0x1p32 +
           static_cast<double>(static_cast<uint32_t>(number));
}

/* The first eight decimals, and those after them, from floating point; the rests are exact, since what is above 64
   bits cancels out. A last decimal that came out one too large or too small shows in the rest. False, by no operands
   known, if it is farther off. both: the digits of a, then those of b. */
static bool divide_exactly(__m128i both, t_QUOTIENT *q)
{
    const __m128i halves = wire::eights_of_digits(both);
    const uint64_t a = number_of(halves);
    const uint64_t b = number_of(_mm_srli_si128(halves, 8));
    const double inverse = 1.0 / double_of(b);
    const bool smaller = a < b;
    const auto front = static_cast<uint32_t>(static_cast<int32_t>(double_of(a) * inverse * (smaller ? 1e8 : 1e6)));
    const uint64_t middle = a * (smaller ? dec_half_base : dec_half_base / DEC_BASE) - front * b;
    int32_t back = static_cast<int32_t>(double_of(middle) * inverse * 1e8);
    uint64_t rest = middle * dec_half_base - static_cast<uint64_t>(int64_t{back}) * b;
    if (static_cast<int64_t>(rest) < 0) {
        rest += b;
        back--;
    } else if (rest >= b) {
        rest -= b;
        back++;
    }
    *q = {b, uint64_t{front} * dec_half_base + static_cast<uint64_t>(int64_t{back}), rest, smaller};
    return rest < b;
}

/* A bound on what the digit loop's steps take off too little, see below, in hundredths of the ninth place: for each
   step that cuts, x being the quotient's digit and f the first digit of the divisor outside, the hundredths of x * f;
   and x, if there are digits after f. It is rounded up to 2 units for the last step if its digit is the guard digit.
 */
static uint32_t too_little(const t_DECIMAL *b, __m128i digits, bool smaller)
{
    constexpr int reversed = _MM_SHUFFLE(0, 1, 2, 3);
    const __m128i zero = _mm_setzero_si128();
    const int count = dec_count(b);
    const __m128i in_use = _mm_and_si128(wire::first_of(count), _mm_set1_epi8(1));
    /* Words: a digit of the divisor below, 1 above if it is in use. The last step has the second one outside. */
    const __m128i words = _mm_unpacklo_epi8(dec_load(b, count), in_use);
    const __m128i backwards = _mm_shufflehi_epi16(
        _mm_shufflelo_epi16(_mm_shuffle_epi32(words, _MM_SHUFFLE(1, 0, 3, 2)), reversed), reversed);
    const __m128i outside = smaller ? _mm_slli_si128(backwards, 2) : _mm_slli_si128(backwards, 4);
    const __m128i x = _mm_unpacklo_epi8(digits, zero);
    const __m128i product = _mm_mullo_epi16(x, _mm_and_si128(outside, _mm_set1_epi16(0xFF)));
    const __m128i units = wire::hundreds_of(product);
    const __m128i hundredths = _mm_sub_epi16(product, _mm_mullo_epi16(units, _mm_set1_epi16(DEC_BASE)));
    const __m128i all = _mm_add_epi16(hundredths, _mm_mullo_epi16(x, _mm_srli_epi16(outside, 8)));
    const __m128i pairs = _mm_madd_epi16(all, _mm_set1_epi16(1));
    const __m128i fours = _mm_add_epi32(pairs, _mm_srli_si128(pairs, 8));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_add_epi32(fours, _mm_srli_si128(fours, 4)))) +
           (smaller ? 0 : 2 * DEC_BASE);
}

/* Whether the digit loop gives the digits of the exact quotient, too.
   cut is the number of its steps that cut the remainder: those in which the divisor reaches past the ninth place.
   Each takes off too little, by less than too_little counts for it; or too much, by less than 1 unit of that place
   for each correction of its estimate, since a correction does not give back what is outside. As long as the digits
   are those of the exact quotient, the estimate is q + 1 at most for a divisor that begins with 3 or more (it exceeds
   the quotient by less than 2 / (b - 0.01), b being the divisor with one digit before the point), and q + 3 for any.
   So the loop finds the same digit in the last step if the exact remainder after it is at least low units, and below
   the divisor by at least high units: one for what of the divisor is outside, one so that the same holds in the steps
   before, where the divisor is a hundred times as large, and those taken off too little. With a guard digit the
   eighth step is the last that matters, in whose units the divisor is larger; the guard digit is 50 or more in both
   if the exact one is far enough from 50. An exact quotient whose digits end before the first such step leaves a
   remainder of 0 there, and zeros follow. */
static bool loop_gives(const t_QUOTIENT *q, const t_DECIMAL *b, __m128i digits)
{
    const auto cut = static_cast<uint32_t>(dec_count(b) - 1);
    if (cut == 0) return true;
    const uint32_t count = 32 - static_cast<uint32_t>(__builtin_clz(dec_nonzero(digits)));
    if (q->rest == 0) return count + cut <= DEC_DIGITS + (q->smaller ? 0 : 1);
    const uint64_t unit = q->smaller ? ten_to_14 : ten_to_12;
    /* A hundredth of it, chosen as a constant: a 32-bit processor does not divide 64 bits. */
    const uint64_t part = q->smaller ? ten_to_12 : ten_to_12 / DEC_BASE;
    const uint32_t low = b->dec_dgts[0] < 3 ? 3 * cut : cut;
    const uint32_t high = 2 * DEC_BASE + too_little(b, digits, q->smaller);
    if (q->rest < low * unit || q->rest + high * part > q->divisor) return false;
    const uint64_t twice = 2 * q->rest;
    const uint64_t from_half = twice < q->divisor ? q->divisor - twice : twice - q->divisor;
    return q->smaller || from_half >= 4 * (low * unit);
}

static bool divide_at_once(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result, int *code)
{
    const __m128i both = dec_load_both(a, b);
    t_QUOTIENT q;
    if (!dec_areusual(both) || !divide_exactly(both, &q)) return false;
    t_HALVES halves = dec_halves(q.quotient);
    __m128i digits = wire::digits_of_two_eights(halves.high, halves.low);
    if (!loop_gives(&q, b, digits)) return false;

    int exp = static_cast<int16_t>(a->dec_exp - b->dec_exp + 1) - (q.smaller ? 1 : 0);
    if (!q.smaller && 2 * q.rest >= q.divisor) { /* a guard digit of 50 or more */
        const bool carried_out = ++q.quotient == ten_to_16;
        halves = dec_halves(carried_out ? ten_to_14 : q.quotient);
        digits = wire::digits_of_two_eights(halves.high, halves.low);
        exp += carried_out ? 1 : 0;
    }
    *code = dec_give_digits(exp, dec_common_sign(a, b), digits, result);
    return true;
}
#else
static bool divide_at_once(const t_DECIMAL *, const t_DECIMAL *, t_DECIMAL *, int *)
{
    return false;
}
#endif

int decdiv(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result)
{
    if (dec_isnull(a) || dec_isnull(b)) return dec_give_null(result);
    if (dec_iszero(b)) {
        dec_give_zero(result);
        return DEC_DIVISION_BY_ZERO;
    }
    int code = DEC_OK;
    return divide_at_once(a, b, result, &code) ? code : divide_by_digits(a, b, result);
}
