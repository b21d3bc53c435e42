/* SPDX-License-Identifier: MIT
 *
 * The normaliser: every operation that builds its result in an accumulator ends here. It strips zero digits at both
 * ends, rounds the guard digit away and holds the exponent to its range. */
#include "dec_int.h"
#include "wire/always_assert.h"

/* The ninth digit of nine is lost; the one that moves into its place decides the rounding, as it would with it. */
static void put_in_front(t_DECACC *s, int carry)
{
    memmove(s->dec_dgts + 1, s->dec_dgts, ACCSIZE - 1);
    s->dec_dgts[0] = static_cast<uint8_t>(carry);
    if (s->dec_ndgts < ACCSIZE) s->dec_ndgts++;
}

/* Moves the digits to the front over the zeros there, and says by how many places. A zero keeps no digits. */
static int strip_front(t_DECACC *s)
{
    int zeros = 0;
    while (zeros < s->dec_ndgts && s->dec_dgts[zeros] == 0)
        zeros++;
    if (zeros == 0) return 0;
    const int left = s->dec_ndgts - zeros;
    memmove(s->dec_dgts, s->dec_dgts + zeros, static_cast<size_t>(left));
    memset(s->dec_dgts + left, 0, static_cast<size_t>(zeros));
    s->dec_ndgts = static_cast<int8_t>(left);
    return zeros;
}

/* Half away from zero, on the magnitude. True when the carry made a new first digit. */
static bool round_guard_digit(t_DECACC *s)
{
    s->dec_ndgts = DEC_DIGITS;
    if (s->dec_dgts[DEC_DIGITS] < DEC_HALF || !dec_carry_up(s->dec_dgts, DEC_DIGITS)) return false;
    s->dec_dgts[0] = 1;
    return true;
}

int dec_round(t_DECACC *s, int carry)
{
    if (!(s->dec_ndgts >= 0 && s->dec_ndgts <= ACCSIZE))
        always_assert_fail("s->dec_ndgts >= 0 && s->dec_ndgts <= ACCSIZE", "math/decimal/src/dec_roun", __LINE__,
                           __func__);
    int exp = s->dec_exp;
    if (carry > 0) {
        put_in_front(s, carry);
        exp++;
    } else {
        exp -= strip_front(s);
        if (s->dec_ndgts == 0) {
            s->dec_exp = 0;
            s->dec_pos = DEC_POSITIVE;
            return DEC_OK;
        }
    }
    if (s->dec_ndgts == ACCSIZE && round_guard_digit(s)) exp++;
    s->dec_ndgts = static_cast<int8_t>(dec_trim(s->dec_dgts, s->dec_ndgts));
    return dec_set_exponent(exp, &s->dec_exp);
}
