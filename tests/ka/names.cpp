// SPDX-License-Identifier: MIT
//
// Results carry the names that the module's own tables give them, read from its file.
#include "ka/command.h"

namespace {

Outcome call_of(const std::string &module, std::vector<std::string> words)
{
    words.insert(words.begin(), {"call", module});
    return ka(words);
}

} // namespace

TEST(KaNames, are_those_of_the_prototypes)
{
    EXPECT_EQ(call({"add", "2", "40", "&0"}).out, "sum = 42\nreturn code 0\n");
    EXPECT_EQ(call({"scale_one", "&4.5", "2"}).out, "x = 9.0\nreturn code 0\n");
}

TEST(KaNames, are_read_from_a_module_that_is_not_position_independent)
{
    const Outcome outcome = call_of(module_folder(CALLER_MODULES) + "/caller_module_fixed", {"add", "2", "40", "&0"});
    EXPECT_EQ(outcome.out, "sum = 42\nreturn code 0\n") << outcome.err;
}

TEST(KaNames, several_arguments_of_a_vararg_carry_their_positions)
{
    EXPECT_EQ(call({"describe", "&1"}).out.substr(0, 7), "any = 1");
    const std::string out = call({"describe", "&1", "2", "&'x'"}).out;
    EXPECT_NE(out.find("any (argument 1) = 1\n"), std::string::npos) << out;
    EXPECT_NE(out.find("any (argument 3) = 'x'\n"), std::string::npos) << out;
}

TEST(KaNames, arguments_that_the_table_does_not_name_are_named_by_position)
{
    EXPECT_EQ(call({"--raw", "count_call", "&1"}).out, "argument 1 = 1\nreturn code 9\n");
    EXPECT_EQ(call({"--raw", "nothing_of_this_name", "&1"}).out, "argument 1 = 1\nreturn code 7\n");
}
