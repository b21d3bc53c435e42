/* SPDX-License-Identifier: MIT
 *
 * The buffer of the decimal library's digit strings. The REAL layer leaves in it, without a call, what dececvt would.
 */
#ifndef KA_DECIMAL_STRING_H
#define KA_DECIMAL_STRING_H

namespace decimal {

inline constexpr int STRING_LENGTH = 151;

/* Hidden, so that it is reached without a look-up. */
extern __attribute__((visibility("hidden"))) char string_buffer[STRING_LENGTH + 1];

} // namespace decimal

#endif
