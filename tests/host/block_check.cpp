// SPDX-License-Identifier: MIT
//
// The host's checks of the block when it starts, and that it makes none later.
#include <gtest/gtest.h>

#include "host/probe.h"

namespace {

using namespace harness;

constexpr Layout layouts[] = {Layout::native, Layout::layout_32, Layout::layout_64};

// Ends by itself with status 2, and the hooks of the module have not run. Returns what was written.
std::string refusal(Block &block)
{
    HostProcess host(block, "hooks");
    EXPECT_EQ(host.await_end(), exited(2));
    EXPECT_FALSE(host.has_signalled());
    return host.errors();
}

TEST(BlockCheck, any_wrong_byte_of_the_magic_is_refused)
{
    for (const Layout layout : layouts) {
        for (int i = 0; i < 8; i++) {
            Block block(layout);
            block.store<char>(i, '!');
            EXPECT_EQ(refusal(block), "Bad DLL_MAGIC\n") << "byte " << i;
        }
    }
}

TEST(BlockCheck, a_block_of_zeros_is_refused_by_its_magic)
{
    Block block;
    block.store<int64_t>(0, 0);
    block.store<int64_t>(8, 0);
    EXPECT_EQ(refusal(block), "Bad DLL_MAGIC\n");
}

TEST(BlockCheck, a_wrong_version_is_printed_in_lower_case_hexadecimal)
{
    const std::pair<int64_t, const char *> versions[] = {
        {0, "0"},           {0x100, "100"},       {0x102, "102"},   {0x1010000, "1010000"},
        {0x10101, "10101"}, {0xABCDEF, "abcdef"}, {-1, "ffffffff"}, {0x80000101, "80000101"},
    };
    for (const Layout layout : layouts) {
        for (const auto &[version, text] : versions) {
            Block block(layout);
            block.set(Head::version, version);
            EXPECT_EQ(refusal(block), "Unsupported DLL_VERSION " + std::string(text) + "\n");
        }
    }
}

TEST(BlockCheck, the_magic_is_checked_before_the_version)
{
    Block block;
    block.store<char>(7, 'x');
    block.set(Head::version, 0x102);
    EXPECT_EQ(refusal(block), "Bad DLL_MAGIC\n");
}

TEST(BlockCheck, nothing_is_written_to_a_refused_block)
{
    Block block;
    block.set(Head::version, 0x200);
    const std::string before = block.bytes();
    refusal(block);
    EXPECT_EQ(block.bytes(), before);
}

TEST(BlockCheck, magic_and_version_are_never_looked_at_again)
{
    Block block;
    HostProcess host(block, "noop");
    place(block, "noop");
    EXPECT_EQ(host.call(), 11);
    block.store<int64_t>(0, -1);
    block.set(Head::version, 0);
    EXPECT_EQ(host.call(), 11);
    EXPECT_EQ(host.terminate(), exited(0));
}

TEST(BlockCheck, a_block_that_is_just_large_enough_is_taken)
{
    Block block(Layout::native, 40);
    HostProcess host(block, "noop");
    host.await_idle();
    EXPECT_EQ(host.terminate(), exited(0));
    EXPECT_EQ(host.errors(), "");
}

TEST(BlockCheck, a_segment_that_was_destroyed_cannot_be_attached)
{
    int id = -1;
    {
        Block gone;
        id = gone.id();
    }
    Block block;
    HostProcess host(block, Start{.module = "hooks", .arguments = {{std::to_string(id)}}});
    EXPECT_EQ(host.await_end(), exited(2));
    EXPECT_TRUE(host.errors() == "shmat: Invalid argument\n" || host.errors() == "shmat: Identifier removed\n")
        << host.errors();
}

} // namespace
