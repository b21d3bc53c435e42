// SPDX-License-Identifier: MIT
//
// Calls and call-backs, each with a result of its own.
#ifndef TESTS_CALLER_MANY_CALLS_H
#define TESTS_CALLER_MANY_CALLS_H

#include "caller/hosts.h"

// What the calls expect of a call-back.
inline void adding_one(ka_options &options)
{
    options.callback = [](ka_host *, int32_t value, void *) { return value + 1; };
}

inline void call_many(ka_host *host, int32_t count, int32_t first = 0)
{
    for (int32_t i = first; i < first + count; i++) {
        ASSERT_EQ(call_with(host, "give_code", i), i);
        ASSERT_EQ(call_with(host, "ask", i), i + 1);
    }
}

#endif
