// SPDX-License-Identifier: MIT
//
// The caller's addresses become the host's: where the segment is for either does not matter, and an address outside
// ends the host by an assertion that names it.
#include <gtest/gtest.h>

#include "host/probe.h"
#include "host/probe_mailbox.h"

namespace {

using namespace harness;

class Translation : public testing::TestWithParam<Layout> {
protected:
    Block block{GetParam()};

    // Exactly the assertion of an address outside, but for the number of the line.
    void expect_assertion(HostProcess &host, const std::string &function, const std::string &program = "probe")
    {
        const char *const text =
            GetParam() == Layout::layout_64 ? "((t_DLL_INFO64 *)dll_info)->shmsz" : "dll_info->shmsz";
        EXPECT_EQ(host.await_end(), killed(SIGABRT));
        const std::string before = program + ": dll/src/dllmain:";
        const std::string after =
            ": " + function + ": Assertion `ofs >= 0 && ofs < " + std::string(text) + "' failed.\n";
        const std::string line = with_line_hidden(host.errors());
        EXPECT_EQ(line, before + "LINE" + after);
    }
};
INSTANTIATE_TEST_SUITE_P(Layouts, Translation, testing::Values(Layout::native, Layout::layout_32, Layout::layout_64));

TEST_P(Translation, counts_from_the_base_wherever_the_caller_says_that_it_is)
{
    for (const int64_t base : {0x0LL, 0x1000LL, 0x7ffff000LL, 0x80000000LL, 0xfffff000LL}) {
        block.set(Head::base, base);
        Probe host(block, {integer(1), integer(2).unaligned(3)});
        EXPECT_EQ(host.arg(1).offset, block.offset_of(block.get(1, Arg::ptr)));
        EXPECT_EQ(host.arg(2).offset % 8, 3);
        block.set(1, Arg::ptr, block.address(0));
        EXPECT_EQ(host.arg(1).offset, 0);
        block.set(1, Arg::ptr, block.address(60000));
        EXPECT_EQ(host.arg(1).offset, 60000);
        EXPECT_EQ(host.leave(8), 8);
    }
}

TEST_P(Translation, base_is_read_at_each_use)
{
    Probe host(block, {integer(1)});
    const int32_t offset = host.arg(1).offset;
    block.set(Head::base, block.get(Head::base) - 100);
    EXPECT_EQ(host.arg(1).offset, offset + 100);
    host.leave();
}

TEST_P(Translation, first_and_last_byte_of_the_segment_are_accepted)
{
    Probe host(block, {integer(1)});
    block.set(1, Arg::ptr, block.address(0));
    EXPECT_EQ(host.arg(1).offset, 0);
    block.set(1, Arg::ptr, block.address(block.size() - 1));
    EXPECT_EQ(host.arg(1).offset, block.size() - 1);
    host.leave();
}

TEST_P(Translation, only_the_start_of_a_value_is_tested)
{
    Probe host(block, {integer(1)});
    block.set(1, Arg::ptr, block.address(block.size() - 1));
    block.set(1, Arg::elcnt, 1000000);
    EXPECT_EQ(host.arg(1).elcnt, 1000000);
    host.leave();
}

TEST_P(Translation, first_byte_behind_the_segment_ends_the_host)
{
    Probe host(block, {integer(1)});
    block.set(1, Arg::ptr, block.address(block.size()));
    host.begin(PROBE_ARG, 1);
    expect_assertion(host, "u_get__arg");
}

TEST_P(Translation, byte_before_the_segment_ends_the_host)
{
    Probe host(block, {integer(1)});
    block.set(1, Arg::ptr, block.address(-1));
    host.begin(PROBE_ARG, 1);
    expect_assertion(host, "u_get__arg");
}

TEST_P(Translation, distances_are_signed)
{
    Probe host(block, {integer(1)});
    block.set(1, Arg::ptr, block.address(0x80000000));
    host.begin(PROBE_ARG, 1);
    expect_assertion(host, "u_get__arg");
}

TEST_P(Translation, the_size_is_the_one_that_the_block_tells)
{
    Probe host(block, {integer(1)});
    block.set(Head::shmsz, block.size() + 1);
    block.set(1, Arg::ptr, block.address(block.size()));
    EXPECT_EQ(host.arg(1).offset, block.size());
    block.set(Head::shmsz, 5000);
    block.set(1, Arg::ptr, block.address(4999));
    EXPECT_EQ(host.arg(1).offset, 4999);
    block.set(1, Arg::ptr, block.address(5000));
    host.begin(PROBE_ARG, 1);
    expect_assertion(host, "u_get__arg");
}

TEST_P(Translation, a_size_of_zero_or_below_admits_nothing)
{
    for (const int32_t size : {0, -1}) {
        Probe host(block, {integer(1)});
        block.set(Head::shmsz, size);
        block.set(1, Arg::ptr, block.address(0));
        host.begin(PROBE_ARG, 1);
        expect_assertion(host, "u_get__arg");
        block.set(Head::shmsz, block.size());
    }
}

TEST_P(Translation, a_call_with_an_argument_outside_ends_the_host)
{
    HostProcess host(block, "probe");
    place(block, "serve", {integer(1), integer(2)});
    block.set(2, Arg::ptr, block.address(block.size()));
    host.ring();
    expect_assertion(host, "u_get__arg");
}

TEST_P(Translation, a_call_with_its_name_outside_ends_the_host)
{
    HostProcess host(block, "probe");
    place(block, "serve");
    block.set(0, Arg::ptr, block.address(-4));
    host.ring();
    expect_assertion(host, "u_get__arg");
}

TEST_P(Translation, the_address_is_judged_before_the_type)
{
    {
        HostProcess host(block, "probe");
        place(block, "serve", {integer(1)});
        block.set(1, Arg::type, 77);
        block.set(1, Arg::ptr, block.address(-1));
        host.ring();
        expect_assertion(host, "u_get__arg");
    }
    HostProcess host(block, "probe");
    place(block, "serve");
    block.set(0, Arg::type, 1);
    block.set(0, Arg::ptr, block.address(block.size()));
    host.ring();
    expect_assertion(host, "u_get__arg");
}

TEST_P(Translation, an_argument_that_moved_outside_during_the_call_ends_the_host_at_its_end)
{
    Probe host(block, {integer(1).by_ref()});
    block.set(1, Arg::ptr, block.address(block.size()));
    host.begin(PROBE_RETURN, 0);
    expect_assertion(host, "u_get__arg");
}

TEST_P(Translation, an_assertion_runs_no_hook_and_writes_nothing_to_the_block)
{
    HostProcess host(block, Start{.module = "hooks", .ignored = {SIGABRT}, .blocked = {SIGABRT, SIGUSR2}});
    place(block, "serve");
    block.set(0, Arg::ptr, block.address(-4));
    const std::string before = block.bytes();
    host.ring();
    EXPECT_EQ(host.await_end(), killed(SIGABRT));
    EXPECT_EQ(block.bytes(), before);
    EXPECT_TRUE(host.errors().starts_with("setup: handlers 0 0, attached 1\nhooks: dll/src/dllmain:"))
        << host.errors();
    EXPECT_EQ(host.errors().find("cleanup"), std::string::npos);
    EXPECT_FALSE(host.has_signalled());
}

TEST_P(Translation, the_assertion_names_the_program_without_its_folder)
{
    HostProcess host(block, Start{.module = "probe", .name = "/a/b/named so"});
    place(block, "serve");
    block.set(0, Arg::ptr, block.address(-4));
    host.ring();
    expect_assertion(host, "u_get__arg", "named so");
}

// ---- The scratch area -------------------------------------------------------------------------------------------

TEST_P(Translation, a_scratch_area_outside_ends_the_host)
{
    for (const int64_t distance : {int64_t{block.size()}, int64_t{-1}, int64_t{0x80000000}}) {
        for (const int32_t size : {0, -1, 1}) {
            block.set(Head::scratch, 0);
            Probe host(block);
            block.set(Head::scratch, block.address(distance));
            host.begin(PROBE_SCRATCH, size);
            expect_assertion(host, "dll_scratch");
        }
    }
}

} // namespace
