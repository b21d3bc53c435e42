// SPDX-License-Identifier: MIT
//
// A segment and the block in it, for people and as JSON.
#ifndef KA_TOOL_BLOCK_SHOW_H
#define KA_TOOL_BLOCK_SHOW_H

#include <optional>
#include <string>

#include "attached.h"
#include "base/json.h"
#include "decode.h"

struct Dump {
    Segment segment;
    std::string no_block;    // why there is none, or empty
    std::string layout_from; // how the layout was found out
    std::optional<Block> block;
};

// Lines, each with its line end.
std::string show_dump(const Dump &dump);

Json dump_json(const Dump &dump);

#endif
