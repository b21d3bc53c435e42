// SPDX-License-Identifier: MIT
//
// Ends of the process that are promised: abort, with exactly one text on standard error and no core file.
#pragma once

#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>

#ifdef KA_COVERAGE
extern "C" void __gcov_dump();
#endif

namespace model {

inline void leave_no_core_file()
{
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
}

// A process that aborts counts in the coverage too.
inline void keep_the_coverage()
{
#ifdef KA_COVERAGE
    signal(SIGABRT, [](int) { __gcov_dump(); });
#endif
}

} // namespace model

// The regular expression must describe the whole of standard error.
#define EXPECT_ABORT(statement, whole_stderr) \
    EXPECT_EXIT(                              \
        {                                     \
            model::leave_no_core_file();      \
            model::keep_the_coverage();       \
            statement;                        \
        },                                    \
        testing::KilledBySignal(SIGABRT), std::string("^") + (whole_stderr) + "$")
