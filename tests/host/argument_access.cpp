// SPDX-License-Identifier: MIT
//
// The accessors of the block, used by a function while the caller changes the block under it.
#include <gtest/gtest.h>

#include <climits>

#include "host/probe.h"
#include "host/probe_mailbox.h"

namespace {

using namespace harness;

const SeenArgument none = {0, 0, -1, 0, 0, 0, 0};

// The descriptor as it must be seen: its fields, and the byte of the segment that its address means.
SeenArgument expected(const Block &block, int i, uint64_t host_base)
{
    const auto field = [&](Arg name) { return static_cast<int32_t>(block.get(i, name)); };
    const int32_t offset = block.offset_of(block.get(i, Arg::ptr));
    return {field(Arg::type),
            field(Arg::ref),
            offset,
            field(Arg::maxlen),
            field(Arg::elsz),
            field(Arg::elcnt),
            host_base + static_cast<uint64_t>(offset)};
}

class Access : public testing::TestWithParam<Layout> {
protected:
    Block block{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(Layouts, Access, testing::Values(Layout::native, Layout::layout_32, Layout::layout_64));

TEST_P(Access, base_pointer_is_where_the_segment_is_attached)
{
    Probe host(block);
    const std::set<uint64_t> starts = segment_addresses(host.pid());
    EXPECT_EQ(starts, std::set<uint64_t>{host.base()});
    host.leave();
}

TEST_P(Access, argc_is_handed_on_unchecked_and_read_at_each_use)
{
    Probe host(block, {integer(1), integer(2)});
    EXPECT_EQ(host.ask(PROBE_ARGC), 3);
    for (const int32_t argc : {0, 1, -1, 51, 52, 1000000, INT_MAX, INT_MIN}) {
        block.set(Head::argc, argc);
        EXPECT_EQ(host.ask(PROBE_ARGC), argc);
    }
    block.set(Head::argc, 3);
    EXPECT_EQ(host.leave(4), 4);
}

TEST_P(Access, argument_0_is_the_function_name)
{
    Probe host(block, {integer(1)});
    const SeenArgument name = host.arg(0);
    EXPECT_EQ(name, expected(block, 0, host.base()));
    EXPECT_EQ(name.type, 3);
    EXPECT_EQ(name.maxlen, 5);
    EXPECT_EQ(name.elcnt, 1);
    EXPECT_EQ(block.load<int32_t>(name.offset), 5);
    EXPECT_EQ(std::string(block.at(name.offset + 4), 5), "serve");
}

TEST_P(Access, arguments_of_each_type_are_described_as_the_caller_passed_them)
{
    Probe host(block, {integer(7), reals(std::vector<t_DECIMAL>(3)).by_ref(), strings({"a", "bcd"}, 10).by_ref(9)});
    const uint64_t base = host.base();
    for (int i = 0; i < 4; i++)
        EXPECT_EQ(host.arg(i), expected(block, i, base));
    EXPECT_EQ(host.arg(2).type, 2);
    EXPECT_EQ(host.arg(2).elcnt, 3);
    EXPECT_EQ(host.arg(3).ref, 9);
    EXPECT_EQ(host.arg(3).maxlen, 10);
    host.leave();
}

TEST_P(Access, indexes_outside_0_to_argc_give_the_record_of_zeros)
{
    Probe host(block, {integer(1), integer(2)});
    for (const int32_t i : {-1, -2, INT_MIN, 3, 4, 51, INT_MAX})
        EXPECT_EQ(host.arg(i), none) << i;
    EXPECT_EQ(host.arg(2).type, 1);
    host.leave();
}

TEST_P(Access, no_descriptor_exists_when_argc_is_zero_or_negative)
{
    Probe host(block, {integer(1)});
    for (const int32_t argc : {0, -1, INT_MIN}) {
        block.set(Head::argc, argc);
        EXPECT_EQ(host.arg(0), none);
        EXPECT_EQ(host.arg(1), none);
        EXPECT_EQ(host.ask(PROBE_UNREF, 0), -1);
    }
    block.set(Head::argc, 2);
    host.leave();
}

TEST_P(Access, descriptors_beyond_51_are_read_where_argc_says_that_they_exist)
{
    Probe host(block);
    const uint64_t base = host.base();
    block.set(60, Arg::type, 1);
    block.set(60, Arg::ref, 5);
    block.set(60, Arg::ptr, block.address(4321));
    block.set(Head::argc, 60);
    EXPECT_EQ(host.arg(60), none);
    block.set(Head::argc, INT_MAX);
    EXPECT_EQ(host.arg(60), expected(block, 60, base));
    EXPECT_EQ(host.ask(PROBE_UNREF, 60), 0);
    EXPECT_EQ(block.get(60, Arg::ref), 0);
    block.set(Head::argc, 1);
    host.leave();
}

TEST_P(Access, any_values_of_the_fields_are_handed_on)
{
    Probe host(block, {integer(1)});
    const uint64_t base = host.base();
    const int32_t values[] = {0, 1, -1, 0x12345678, INT_MAX, INT_MIN};
    for (const int32_t value : values) {
        block.set(1, Arg::type, value);
        block.set(1, Arg::ref, value ^ 1);
        block.set(1, Arg::maxlen, value ^ 2);
        block.set(1, Arg::elsz, value ^ 4);
        block.set(1, Arg::elcnt, value ^ 8);
        EXPECT_EQ(host.arg(1), expected(block, 1, base));
    }
    block.set(1, Arg::ref, 0);
    host.leave();
}

TEST_P(Access, descriptors_are_read_at_each_use)
{
    Probe host(block, {integers({1, 2})});
    EXPECT_EQ(host.arg(1).elcnt, 2);
    block.set(1, Arg::elcnt, 1);
    block.set(1, Arg::ptr, block.address(5000));
    EXPECT_EQ(host.arg(1).elcnt, 1);
    EXPECT_EQ(host.arg(1).offset, 5000);
    host.leave();
}

// ---- u_unref_arg ------------------------------------------------------------------------------------------------

// The bytes in which the segment differs from before, the mailbox left out.
std::set<int> changed_bytes(const Block &block, const std::string &before)
{
    const std::string now = block.bytes();
    std::set<int> changed;
    for (int i = 0; i < block.size(); i++) {
        const bool mailbox = i >= mailbox_offset && i < mailbox_offset + static_cast<int>(sizeof(Mailbox));
        if (!mailbox && before[static_cast<size_t>(i)] != now[static_cast<size_t>(i)]) changed.insert(i);
    }
    return changed;
}

TEST_P(Access, unref_clears_the_flag_of_that_descriptor_and_nothing_else)
{
    Probe host(block, {integer(1).by_ref(-1), integer(2).by_ref(-1), integer(3).by_ref(-1)});
    block.set(0, Arg::ref, -1);
    for (const int i : {3, 0, 1, 2}) {
        const std::string before = block.bytes();
        EXPECT_EQ(host.ask(PROBE_UNREF, i), 0);
        const int at = GetParam() == Layout::layout_64 ? 48 + 32 * i + 4 : 40 + 24 * i + 4;
        EXPECT_EQ(changed_bytes(block, before), (std::set<int>{at, at + 1, at + 2, at + 3}));
        EXPECT_EQ(block.get(i, Arg::ref), 0);
    }
    host.leave();
}

TEST_P(Access, unref_of_a_cleared_flag_succeeds)
{
    Probe host(block, {integer(1)});
    EXPECT_EQ(host.ask(PROBE_UNREF, 1), 0);
    EXPECT_EQ(host.ask(PROBE_UNREF, 1), 0);
    EXPECT_EQ(block.get(1, Arg::ref), 0);
    host.leave();
}

TEST_P(Access, unref_of_no_descriptor_changes_nothing)
{
    Probe host(block, {integer(1).by_ref()});
    block.set(2, Arg::ref, 5);
    const std::string before = block.bytes();
    for (const int32_t i : {2, 3, INT_MAX, -1, -2, INT_MIN})
        EXPECT_EQ(host.ask(PROBE_UNREF, i), -1) << i;
    EXPECT_EQ(changed_bytes(block, before), std::set<int>{});
    host.leave();
}

TEST_P(Access, unref_does_not_look_at_the_address)
{
    Probe host(block, {integer(1).by_ref()});
    const int64_t good = block.get(1, Arg::ptr);
    block.set(1, Arg::ptr, block.address(-1));
    EXPECT_EQ(host.ask(PROBE_UNREF, 1), 0);
    EXPECT_EQ(block.get(1, Arg::ref), 0);
    block.set(1, Arg::ptr, good);
    host.leave();
}

TEST_P(Access, reading_writes_nothing)
{
    Probe host(block, {integer(1).by_ref(), string("abc", 20).by_ref()});
    const std::string before = block.bytes();
    for (int i = -1; i < 5; i++)
        host.arg(i);
    host.ask(PROBE_ARGC);
    host.ask(PROBE_SCRATCH, 1);
    host.ask(PROBE_ADDRESS);
    EXPECT_EQ(changed_bytes(block, before), std::set<int>{});
    host.leave();
}

// ---- Layout 64 alone --------------------------------------------------------------------------------------------

TEST(Layout64, high_halves_of_addresses_are_ignored)
{
    Block block(Layout::layout_64);
    block.set(Head::base, 0x1234567800001000);
    Probe host(block, {integer(1)});
    block.set(1, Arg::ptr, static_cast<int64_t>(0xdeadbeef00001000) + 4444);
    EXPECT_EQ(host.arg(1).offset, 4444);
    block.set(Head::scratch, 0x7777777700001000 + 5555);
    EXPECT_EQ(host.ask(PROBE_SCRATCH, 1), 5555);
    EXPECT_EQ(host.leave(3), 3);
}

TEST(Layout64, reserved_word_of_a_descriptor_stays_as_it_is)
{
    Block block(Layout::layout_64);
    Probe host(block, {integer(1).by_ref()});
    block.store<int32_t>(48 + 32 + 28, 0x5A5A5A5A);
    EXPECT_EQ(host.arg(1).elcnt, 1);
    EXPECT_EQ(host.ask(PROBE_UNREF, 1), 0);
    EXPECT_EQ(host.leave(), 0);
    EXPECT_EQ(block.load<int32_t>(48 + 32 + 28), 0x5A5A5A5A);
}

} // namespace
