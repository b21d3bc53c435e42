// SPDX-License-Identifier: MIT
//
// See json.h.
#include "json.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string_view>

#include "text.h"
#include "wire/printable.h"

namespace {

constexpr char hex[] = "0123456789abcdef";

std::string hex_json(const std::string &value)
{
    std::string text;
    for (char c : value) {
        const auto byte = static_cast<unsigned char>(c);
        text += {hex[byte >> 4], hex[byte & 15]};
    }
    return "{\"hex\":\"" + text + "\"}";
}

// Of a character that is obeyed; those have up to three bytes.
std::string json_escape(std::string_view character)
{
    unsigned code = static_cast<unsigned char>(character[0]) & (character.size() == 1 ? 0x7fu : 0x1fu);
    for (const char byte : character.substr(1))
        code = code << 6 | (static_cast<unsigned char>(byte) & 0x3fu);
    char text[8];
    std::snprintf(text, sizeof text, "\\u%04x", code & 0xffffu);
    return text;
}

} // namespace

// The JSON library leaves as they are the control characters that JSON allows in a string.
std::string json_line(const nlohmann::ordered_json &json)
{
    const std::string text = json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    std::string shown;
    for (std::string_view rest = text; !rest.empty();) {
        const auto *bytes = reinterpret_cast<const unsigned char *>(rest.data());
        const size_t length = wire::character_length(bytes, rest.size());
        const std::string_view character = rest.substr(0, length);
        shown += wire::is_obeyed(bytes, length) ? json_escape(character) : std::string(character);
        rest.remove_prefix(length);
    }
    return shown;
}

std::string string_json(const std::string &text)
{
    return is_utf8(text) ? json_line(text) : hex_json(text);
}

std::string name_json(const std::string &name)
{
    return json_line(name);
}
