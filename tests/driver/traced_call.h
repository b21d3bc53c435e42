// SPDX-License-Identifier: MIT
//
// One traced call, and what level 2 shows of it.
#ifndef TESTS_DRIVER_TRACED_CALL_H
#define TESTS_DRIVER_TRACED_CALL_H

#include <gtest/gtest.h>

#include "driver/session.h"

namespace driver {

// Everything written during one call of a fresh host.
inline std::string trace(int level, const std::string &function, const std::vector<Argument> &arguments = {},
                         const std::vector<Step> &script = {})
{
    Session session(Layout::native, traced(level));
    session.call(function, arguments, script);
    EXPECT_EQ(session.host.terminate(), harness::exited(0));
    return session.output();
}

// The trace at level 2 of a call of a function that returns 0, given the lines of its values.
inline std::string called(const std::string &function, int argc, const std::string &before,
                          const std::string &after = "")
{
    return "\ncalling " + function + ", argc = " + std::to_string(argc) + "\n" + before + "return code is 0\n" +
           after;
}

} // namespace driver

#endif
