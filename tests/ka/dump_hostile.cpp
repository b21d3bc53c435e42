// SPDX-License-Identifier: MIT
//
// Whatever is in a segment, decoding ends, and reads nothing outside: the bytes are at the end of a page that
// is followed by one that cannot be read.
#include "ka/command.h"

#include <nlohmann/json.hpp>
#include <random>
#include <sys/mman.h>

#include "block/decode.h"
#include "ka/own_segment.h"
#include "ka/terminal_text.h"

namespace {

constexpr size_t page = 4096;

struct Guarded {
    Guarded()
        : pages(static_cast<char *>(
              mmap(nullptr, 3 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)))
    {
        EXPECT_EQ(mprotect(pages + 2 * page, page, PROT_NONE), 0);
    }
    ~Guarded() { munmap(pages, 3 * page); }
    Guarded(const Guarded &) = delete;
    Guarded &operator=(const Guarded &) = delete;

    char *last(size_t size) const { return pages + 2 * page - size; }

    char *pages;
};

// Words that do harm where they are trusted.
int32_t hostile_word(std::mt19937 &random)
{
    static constexpr int32_t words[] = {0,         1,         -1,       2,          3,          51,         52,
                                        INT32_MAX, INT32_MIN, own_base, 0x3fffffff, 0x40000fff, 0x40001000, 4096};
    const uint32_t kind = random() % 4;
    if (kind == 0) return static_cast<int32_t>(random());
    if (kind == 1) return static_cast<int32_t>(own_base + random() % 8192);
    return words[random() % std::size(words)];
}

void fill(char *bytes, size_t size, std::mt19937 &random)
{
    for (size_t i = 0; i + 4 <= size; i += 4) {
        const int32_t word = hostile_word(random);
        std::memcpy(bytes + i, &word, sizeof word);
    }
}

// A block that looks sound, with some words replaced.
void spoil(char *bytes, size_t size, std::mt19937 &random)
{
    std::memset(bytes, 0, size);
    if (random() % 2 == 0) {
        write_call(write_block<t_DLL_INFO32>(bytes, static_cast<int32_t>(size)), bytes);
    } else {
        write_call(write_block<t_DLL_INFO64>(bytes, static_cast<int32_t>(size)), bytes);
    }
    for (uint32_t n = random() % 8; n > 0; n--) {
        const int32_t word = hostile_word(random);
        std::memcpy(bytes + random() % 200 / 4 * 4, &word, sizeof word);
    }
    for (uint32_t n = random() % 8; n > 0; n--)
        bytes[3000 + random() % 320] = static_cast<char>(random());
}

} // namespace

TEST(KaDumpHostile, decoding_garbage_reads_nothing_outside)
{
    const Guarded guarded;
    const unsigned seed = std::random_device{}();
    std::mt19937 random(seed);
    for (int round = 0; round < 4000; round++) {
        const size_t size = random() % (2 * page);
        char *bytes = guarded.last(size);
        fill(bytes, size, random);
        for (const int layout : {0, 64}) {
            const Block block = decode_block({bytes, size}, layout, {std::nullopt, 20});
            ASSERT_LE(block.descriptors.size(), size_t{DLL_MAX_ARGC}) << "seed " << seed;
        }
        why_no_block({bytes, size});
        likely_layout({bytes, size});
    }
}

TEST(KaDumpHostile, decoding_a_spoilt_call_reads_nothing_outside)
{
    const Guarded guarded;
    const unsigned seed = std::random_device{}();
    std::mt19937 random(seed);
    for (int round = 0; round < 4000; round++) {
        char *bytes = guarded.last(page);
        spoil(bytes, page, random);
        for (const int layout : {0, 64}) {
            const Block block = decode_block({bytes, page}, layout, {std::nullopt, 1000});
            for (const BlockDescriptor &descriptor : block.descriptors)
                ASSERT_LE(descriptor.elements.size(), 1000u) << "seed " << seed;
        }
    }
}

TEST(KaDumpHostile, the_command_survives_and_its_json_can_be_read)
{
    const unsigned seed = std::random_device{}();
    std::mt19937 random(seed);
    OwnSegment segment(page);
    for (int round = 0; round < 60; round++) {
        spoil(segment.bytes, page, random);
        const Outcome text = ka({"dump", "--id", std::to_string(segment.id)});
        EXPECT_TRUE(text.status == 0 || text.status == 1) << text.status << ", seed " << seed;
        EXPECT_EQ(fault_on_terminal(text.out + text.err), "") << text.out << ", seed " << seed;
        const Outcome json = ka({"dump", "--json", "--layout", "64", "--id", std::to_string(segment.id)});
        EXPECT_EQ(fault_on_terminal(json.out + json.err), "") << json.out << ", seed " << seed;
        EXPECT_TRUE(nlohmann::json::accept(json.out)) << json.out << ", seed " << seed;
    }
}
