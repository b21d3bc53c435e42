/* SPDX-License-Identifier: MIT
 *
 * The constant records. */
#include "dec_int.h"

// clang-format off
const t_DECIMAL c_dec_zero  = {.dec_exp = 0, .dec_pos = DEC_POSITIVE, .dec_ndgts = 0, .dec_dgts = {}};
const t_DECIMAL c_dec_one   = {.dec_exp = 1, .dec_pos = DEC_POSITIVE, .dec_ndgts = 1, .dec_dgts = {1}};
const t_DECIMAL c_int32_max = {.dec_exp = 5, .dec_pos = DEC_POSITIVE, .dec_ndgts = 5, .dec_dgts = {21, 47, 48, 36, 47}};
const t_DECIMAL c_int32_min = {.dec_exp = 5, .dec_pos = DEC_NEGATIVE, .dec_ndgts = 5, .dec_dgts = {21, 47, 48, 36, 48}};

/* KEPT: seven digits, not the eight that a record holds: the largest REAL is fourteen nines at the top exponent.
   Test: Decconst.huge_has_seven_digits. */
const t_DECIMAL c_dec_huge  = {.dec_exp = DEC_EXP_MAX, .dec_pos = DEC_POSITIVE, .dec_ndgts = 7,
                               .dec_dgts = {99, 99, 99, 99, 99, 99, 99}};
// clang-format on
