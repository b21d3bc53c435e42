/* SPDX-License-Identifier: MIT
 *
 * The buffer of the decimal library's digit strings. The REAL layer leaves in it, without a call, what dececvt would.
 */
#ifndef KA_WIRE_DECIMAL_STRING_H
#define KA_WIRE_DECIMAL_STRING_H

namespace wire {

inline constexpr int DECIMAL_STRING_LENGTH = 151;

/* Hidden, so that it is reached without a look-up. */
extern __attribute__((visibility("hidden"))) char decimal_string[DECIMAL_STRING_LENGTH + 1];

} // namespace wire

#endif
