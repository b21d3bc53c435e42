// SPDX-License-Identifier: MIT
//
// ka list and ka call at a terminal.
#include <csignal>

#include "ka/command.h"
#include "ka/pseudo_terminal.h"

TEST(KaAtTerminal, list_and_complaints_are_coloured)
{
    PseudoTerminal list({KA_COMMAND, "list", tasks_module}, {"TERM=xterm", "NO_COLOR="});
    EXPECT_TRUE(list.shows("\x1b[2mFUNCTION\x1b[0m"));
    EXPECT_TRUE(list.shows("\x1b[1mscale\x1b[0m"));
    EXPECT_EQ(list.end(), 0);
    PseudoTerminal call({KA_COMMAND, "call", tasks_module, "ad"}, {"TERM=xterm", "NO_COLOR="});
    EXPECT_TRUE(call.shows("\x1b[1;31mka:\x1b[0m the module has no function"));
    EXPECT_EQ(call.end(), 3);
}

TEST(KaAtTerminal, nothing_is_coloured_with_no_color)
{
    PseudoTerminal list({KA_COMMAND, "list", tasks_module}, {"TERM=xterm", "NO_COLOR=1"});
    EXPECT_TRUE(list.shows("scribble_base"));
    EXPECT_EQ(list.end(), 0);
    EXPECT_EQ(list.output().find('\x1b'), std::string::npos);
}

TEST(KaAtTerminal, long_call_tells_that_it_goes_on)
{
    PseudoTerminal call({KA_COMMAND, "call", tasks_module, "nap", "1500"}, {"TERM=xterm"});
    EXPECT_TRUE(call.shows("calling nap, 1 s"));
    EXPECT_TRUE(call.shows("\r\x1b[K"));
    EXPECT_TRUE(call.shows("return code 0"));
    EXPECT_EQ(call.end(), 0);
}

TEST(KaAtTerminal, repeated_calls_are_counted_and_interrupted)
{
    PseudoTerminal call({KA_COMMAND, "call", "--repeat", "1000000", tasks_module, "nap", "1"}, {"TERM=xterm"});
    EXPECT_TRUE(call.shows(" of 1000000, 1 s"));
    call.type("\x03");
    EXPECT_EQ(call.end(), 130);
}
