// SPDX-License-Identifier: MIT
//
// The host's command line: which forms are taken, what the others print, and with which status they end.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/shm.h>

#include "host/probe.h"
#include "host/probe_mailbox.h"

namespace {

using namespace harness;

constexpr const char *no_such_segment = "shmat: Invalid argument\n";

struct Outcome {
    End end;
    std::string errors;
    bool operator==(const Outcome &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Outcome &outcome)
{
    return out << outcome.end << ", wrote \"" << outcome.errors << "\"";
}

// A start that comes to its end by itself. The program's name is "a host".
Outcome start_with(const std::vector<std::string> &arguments)
{
    Block block;
    HostProcess host(block, Start{.module = "probe", .arguments = arguments, .name = "a host"});
    const End end = host.await_end();
    return {end, host.errors()};
}

// The identifier of a segment followed by a suffix. Whether a host started so reads a call written in the layout.
class Accepted : public testing::TestWithParam<std::pair<Layout, std::string>> {};

TEST_P(Accepted, suffix_selects_the_layout)
{
    const auto [layout, suffix] = GetParam();
    Block block(layout);
    const std::vector<std::string> arguments = {std::to_string(block.id()) + suffix};
    Probe host(block, {integer(5)}, Start{.module = "probe", .arguments = arguments});
    EXPECT_EQ(host.ask(PROBE_ARGC), 2);
    EXPECT_EQ(host.arg(1).offset, block.offset_of(block.get(1, Arg::ptr)));
    EXPECT_EQ(host.leave(42), 42);
    EXPECT_EQ(host.terminate(), exited(0));
    EXPECT_EQ(host.errors(), "");
}

const std::pair<Layout, std::string> accepted[] = {
    {Layout::native, ""},        {Layout::native, ":"},        {Layout::native, ":0"},
    {Layout::native, ":32"},     {Layout::layout_64, ":64"},   {Layout::native, ":native"},
    {Layout::native, ":x64"},    {Layout::native, ":0x40"},    {Layout::native, ":-0"},
    {Layout::layout_64, ":+64"}, {Layout::layout_64, ": 64"},  {Layout::layout_64, ":064"},
    {Layout::native, "::64"},    {Layout::layout_64, ":64:0"}, {Layout::native, "x"},
    {Layout::layout_64, "x:64"}, {Layout::native, ":32bit"},
};
INSTANTIATE_TEST_SUITE_P(CommandLine, Accepted, testing::ValuesIn(accepted));

class Refused : public testing::TestWithParam<const char *> {};

TEST_P(Refused, suffix_is_named_with_the_whole_argument)
{
    Block block;
    const std::string argument = std::to_string(block.id()) + GetParam();
    EXPECT_EQ(start_with({argument}), (Outcome{exited(2), "a host: Illegal argument: " + argument + "\n"}));
}

// 96 is 64 + 32: only of 0 and 32 the bit worth 32 is cleared away.
INSTANTIATE_TEST_SUITE_P(CommandLine, Refused,
                         testing::Values(":16", ":96", ":1", ":31", ":33", ":63", ":65", ":128", ":-64", ":-32",
                                         ":-1", ":16:64", ":320", ":4294967360", ":99999999999999999999"));

// The exit handlers of a module's constructors run, whatever the error.
TEST(CommandLine, start_up_errors_leave_through_exit)
{
    Block good, bad_magic, bad_version;
    bad_magic.store<char>(0, 'x');
    bad_version.set(Head::version, 0x100);
    const std::pair<std::vector<std::string>, const char *> starts[] = {
        {{}, "a host: Illegal call\n"},
        {{"1:16"}, "a host: Illegal argument: 1:16\n"},
        {{"2147483647"}, no_such_segment},
        {{bad_magic.argument()}, "Bad DLL_MAGIC\n"},
        {{bad_version.argument()}, "Unsupported DLL_VERSION 100\n"},
    };
    for (const auto &[arguments, message] : starts) {
        HostProcess host(
            good,
            Start{.module = "at_exit", .arguments = arguments, .name = "a host", .environment = {"AT_EXIT_EARLY=1"}});
        EXPECT_EQ(host.await_end(), exited(2));
        EXPECT_EQ(host.errors(), std::string(message) + "at exit\n");
    }
}

TEST(CommandLine, no_argument_is_an_illegal_call)
{
    EXPECT_EQ(start_with({}), (Outcome{exited(2), "a host: Illegal call\n"}));
}

TEST(CommandLine, two_arguments_are_an_illegal_call)
{
    EXPECT_EQ(start_with({"1", "2"}), (Outcome{exited(2), "a host: Illegal call\n"}));
    EXPECT_EQ(start_with({"1:16", "2"}), (Outcome{exited(2), "a host: Illegal call\n"}));
}

TEST(CommandLine, fifty_arguments_are_an_illegal_call)
{
    EXPECT_EQ(start_with(std::vector<std::string>(50, "1")), (Outcome{exited(2), "a host: Illegal call\n"}));
}

TEST(CommandLine, messages_begin_with_the_first_word_as_it_was_given)
{
    Block block;
    HostProcess host(block, Start{.module = "probe", .arguments = {{}}, .name = "/some/where/%s/module"});
    EXPECT_EQ(host.await_end(), exited(2));
    EXPECT_EQ(host.errors(), "/some/where/%s/module: Illegal call\n");
}

TEST(CommandLine, identifier_is_decimal_also_with_a_zero_in_front)
{
    Block block;
    HostProcess host(block, Start{.module = "probe", .arguments = {{"0" + std::to_string(block.id())}}});
    host.await_idle();
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(CommandLine, text_without_digits_is_identifier_0_and_fails_to_attach)
{
    // Identifier 0 is the first segment of a system: perhaps the block of a test that runs at the same time. So where
    // it is allowed the segments of others are not seen here, and number 0 is used up.
    const bool alone = unshare(CLONE_NEWIPC) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0;
    if (alone) shmctl(shmget(IPC_PRIVATE, 1, 0600), IPC_RMID, nullptr);
    for (const char *text : {"segment", "", ":64", "-", "x1"}) {
        const Outcome outcome = start_with({text});
        EXPECT_EQ(outcome.end, exited(2)) << text;
        const bool is_somebodys = !alone && outcome.errors == "Bad DLL_MAGIC\n";
        EXPECT_TRUE(outcome.errors.starts_with("shmat: ") || is_somebodys) << outcome;
    }
}

TEST(CommandLine, identifier_that_does_not_exist_fails_to_attach)
{
    EXPECT_EQ(start_with({"-1"}), (Outcome{exited(2), no_such_segment}));
    EXPECT_EQ(start_with({"2147483647"}), (Outcome{exited(2), no_such_segment}));
    EXPECT_EQ(start_with({"2147483647:64"}), (Outcome{exited(2), no_such_segment}));
}

// The nearest number of 32 bits, which is no segment; not what is left of it in 32 bits, which would be one.
TEST(CommandLine, identifier_out_of_range_is_the_nearest_number)
{
    Block block;
    for (const char *sign : {"", "-"}) {
        const std::string wrapped = sign + std::to_string((int64_t{1} << 32) + (*sign == 0 ? 1 : -1) * block.id());
        EXPECT_EQ(start_with({wrapped}), (Outcome{exited(2), no_such_segment})) << wrapped;
    }
}

TEST(CommandLine, illegal_suffix_is_found_before_the_segment_is_looked_for)
{
    EXPECT_EQ(start_with({"2147483647:16"}), (Outcome{exited(2), "a host: Illegal argument: 2147483647:16\n"}));
    EXPECT_EQ(start_with({"nonsense:8"}), (Outcome{exited(2), "a host: Illegal argument: nonsense:8\n"}));
}

} // namespace
