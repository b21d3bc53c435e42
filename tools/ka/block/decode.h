// SPDX-License-Identifier: MIT
//
// A shared block decoded as it lies in memory, whoever wrote it and whatever it holds: every offset is tested against
// the real size of the segment, every word is read once, and what is wrong is said beside what was found.
#ifndef KA_TOOL_BLOCK_DECODE_H
#define KA_TOOL_BLOCK_DECODE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The segment's bytes. Others may write them at any time.
struct Bytes {
    const char *data;
    size_t size;
};

struct BlockElement {
    std::string text;        // as an argument of ka call is written; empty where there is none to be read
    std::string bytes;       // of a string
    std::string fault;       // what is wrong with it, or empty
    bool is_outside = false; // begins outside the segment
};

struct BlockDescriptor {
    int32_t type, ref, maxlen, elsz, elcnt;
    uint32_t ptr;
    std::optional<uint32_t> offset;     // of the value in the segment, when it lies inside
    std::vector<BlockElement> elements; // as many as were wished
    std::vector<std::string> faults;
};

struct Block {
    int layout; // 0 or 64
    int32_t version, pid, retcode, shmsz, cbval, argc;
    uint32_t base;
    uint64_t scratch;
    std::optional<uint32_t> scratch_offset;
    std::vector<BlockDescriptor> descriptors;
    std::vector<std::string> faults;
};

// Why the bytes hold no block at all; empty when they begin like one.
std::string why_no_block(Bytes bytes);

// The layout that the header fits better: 0 or 64.
int likely_layout(Bytes bytes);

struct Limits {
    std::optional<int32_t> descriptors; // as many as argc says, when it is not given
    int32_t elements;                   // of each descriptor
};

Block decode_block(Bytes bytes, int layout, const Limits &limits);

// "INTEGER", "REAL", "STRING", or the number.
std::string type_name(int32_t type);

#endif
