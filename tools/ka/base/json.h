// SPDX-License-Identifier: MIT
//
// JSON as ka shows it.
#ifndef KA_TOOL_BASE_JSON_H
#define KA_TOOL_BASE_JSON_H

#include <nlohmann/json_fwd.hpp>
#include <string>

// JSON on one line. A character that is not shown as it is becomes \uHHHH, and a byte that is not UTF-8 becomes
// U+FFFD.
std::string json_line(const nlohmann::ordered_json &json);

// A text, quotes included: one that is not UTF-8 becomes {"hex":"..."}; a name or message stays a string whatever is
// in it.
std::string string_json(const std::string &text);
std::string name_json(const std::string &name);

#endif
