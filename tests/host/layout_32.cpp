// SPDX-License-Identifier: MIT
//
// The layout selector 32, which no command line gives: a module with the host's objects linked in sets it itself.
#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include "host/probe.h"
#include "host/probe_mailbox.h"
#include "module_bits.h"

namespace {

using namespace harness;

const Start with_selector = {.module = "probe_layout"};

TEST(Layout32, u_get_arg_hands_ptr_on_as_stored)
{
    Block block;
    Probe host(block, {integer(1).by_ref(2)}, with_selector);
    host.ask(PROBE_LAYOUT, 32);
    for (const uint32_t ptr : {0u, 1u, 0xdeadbeefu, 0xffffffffu, 0x80000000u}) {
        block.set(1, Arg::ptr, ptr);
        block.set(1, Arg::maxlen, 5);
        const SeenArgument seen = host.arg(1);
        EXPECT_EQ(seen.address, ptr);
        EXPECT_EQ(seen.type, 1);
        EXPECT_EQ(seen.ref, 2);
        EXPECT_EQ(seen.maxlen, 5);
        EXPECT_EQ(seen.elsz, 1);
        EXPECT_EQ(seen.elcnt, 1);
    }
    block.set(1, Arg::ref, 0);
    host.leave();
}

TEST(Layout32, the_static_host_translates_in_layout_0)
{
    Block block;
    Probe host(block, {integer(1)}, with_selector);
    const int32_t offset = block.offset_of(block.get(1, Arg::ptr));
    EXPECT_EQ(host.arg(1).offset, offset);
    host.ask(PROBE_LAYOUT, 32);
    EXPECT_EQ(host.arg(1).address, static_cast<uint32_t>(block.get(1, Arg::ptr)));
    host.ask(PROBE_LAYOUT, 0);
    EXPECT_EQ(host.arg(1).offset, offset);
    host.leave();
}

TEST(Layout32, arguments_outside_0_to_argc_are_records_of_zeros)
{
    Block block;
    Probe host(block, {integer(1)}, with_selector);
    host.ask(PROBE_LAYOUT, 32);
    for (const int32_t i : {-1, 2, INT_MIN, INT_MAX}) {
        EXPECT_EQ(host.arg(i).type, 0);
        EXPECT_EQ(host.arg(i).address, 0u);
    }
    host.leave();
}

TEST(Layout32, counts_flags_and_callbacks_work_as_in_the_native_layout)
{
    Block block;
    Probe host(block, {integer(1).by_ref(), integer(2).by_ref()}, with_selector);
    host.ask(PROBE_LAYOUT, 32);
    EXPECT_EQ(host.ask(PROBE_ARGC), 3);
    EXPECT_EQ(host.ask(PROBE_UNREF, 2), 0);
    EXPECT_EQ(block.get(2, Arg::ref), 0);
    EXPECT_EQ(host.ask(PROBE_UNREF, 3), -1);
    EXPECT_EQ(host.callback(7, 70), 70);
    EXPECT_EQ(block.get(Head::cbval), 7);
    EXPECT_EQ(host.leave(9), 9);
}

TEST(Layout32, scratch_is_translated_and_has_its_bounds)
{
    Block block;
    Probe host(block, {}, with_selector);
    host.ask(PROBE_LAYOUT, 32);
    EXPECT_EQ(host.ask(PROBE_SCRATCH, 0), -1);
    block.set(Head::scratch, block.address(block.size() - 16));
    EXPECT_EQ(host.ask(PROBE_SCRATCH, 16), block.size() - 16);
    EXPECT_EQ(host.ask(PROBE_SCRATCH, 17), -1);
    EXPECT_EQ(host.ask(PROBE_SCRATCH, -1), block.size() - 16);
    host.leave();
}

TEST(Layout32, scratch_outside_the_segment_ends_the_host)
{
    Block block;
    for (const int64_t distance : {int64_t{block.size()}, int64_t{-1}}) {
        block.set(Head::scratch, 0);
        Probe host(block, {}, with_selector);
        host.ask(PROBE_LAYOUT, 32);
        block.set(Head::scratch, block.address(distance));
        host.begin(PROBE_SCRATCH, 1);
        EXPECT_EQ(host.await_end(), killed(SIGABRT));
        EXPECT_EQ(with_line_hidden(host.errors()),
                  "probe_layout: dll/src/dllmain:LINE: dll_scratch: Assertion `ofs >= 0 && ofs < "
                  "((t_DLL_INFO32 *)dll_info)->shmsz' failed.\n");
    }
}

// Addresses go through as stored, so the caller writes the host's own, which a field has room for only where the host
// is a 32-bit program.
class Layout32WithAddressesOfTheHost : public testing::TestWithParam<int> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Layout32WithAddressesOfTheHost);
INSTANTIATE_TEST_SUITE_P(Bits, Layout32WithAddressesOfTheHost,
                         testing::ValuesIn(std::vector<int>(module_bits() == 32 ? 1 : 0, 32)));

TEST_P(Layout32WithAddressesOfTheHost, a_whole_call_works)
{
    Block block;
    Probe host(block, {}, with_selector);
    const uint64_t address = host.base();
    host.ask(PROBE_LAYOUT, GetParam());
    host.leave();
    block.set(Head::base, static_cast<uint32_t>(address));
    host.enter({integers({1, 2, 3}).by_ref()});
    EXPECT_EQ(host.arg(1).address, static_cast<uint32_t>(block.get(1, Arg::ptr)));
    EXPECT_EQ(host.arg(1).offset, block.offset_of(block.get(1, Arg::ptr)));
    EXPECT_EQ(host.leave(21), 21);
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(Layout32, hooks_of_a_module_with_the_host_linked_in_take_effect)
{
    Block block;
    HostProcess host(block, "hooks_static");
    host.await_idle();
    EXPECT_EQ(host.terminate(), exited(0));
    EXPECT_EQ(host.errors(), "setup: handlers 0 0, attached 1\ncleanup: attached 0\n");
}

} // namespace
