/* SPDX-License-Identifier: MIT
 *
 * Assertions that NDEBUG does not remove: they guard memory against a broken block or record. They report through the
 * C library's own assertion report and abort. */
#ifndef KA_ALWAYS_ASSERT_H
#define KA_ALWAYS_ASSERT_H

#undef NDEBUG /* with it, the declaration of __assert_fail is missing */
#include <assert.h>

/* "PROGRAM: source:line: function: Assertion `expression' failed." on standard error, then abort. source is the
   file's path in the project without its extension. */
[[noreturn]] inline void always_assert_fail(const char *expression, const char *source, unsigned line,
                                            const char *function)
{
    __assert_fail(expression, source, line, function);
}

#endif
