// SPDX-License-Identifier: MIT
//
// See printable.h.
#include "printable.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string_view>

#include "wire/printable.h"

namespace {

enum class Style { line, lines, literal };

std::string byte_text(char byte)
{
    char text[8];
    std::snprintf(text, sizeof text, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    return text;
}

// Of characters that have a form of their own in that style; else empty.
std::string own_form(char c, Style style)
{
    if (style == Style::lines && (c == '\n' || c == '\t')) return {c};
    if (style != Style::literal) return "";
    switch (c) {
    case '\'':
    case '\\':
        return {'\\', c};
    case '\n':
        return "\\n";
    case '\t':
        return "\\t";
    case '\r':
        return "\\r";
    default:
        return "";
    }
}

std::string escaped(std::string_view rest, Style style)
{
    std::string shown;
    while (!rest.empty()) {
        const std::string form = own_form(rest[0], style);
        const size_t length = wire::printable_length(rest.data(), rest.size());
        const std::string_view bytes = rest.substr(0, std::max<size_t>(length, 1));
        shown += !form.empty() ? form : length > 0 ? std::string(bytes) : byte_text(bytes[0]);
        rest.remove_prefix(bytes.size());
    }
    return shown;
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

std::string printable(const std::string &text)
{
    return escaped(text, Style::line);
}

std::string printable_lines(const std::string &text)
{
    return escaped(text, Style::lines);
}

// No character is cut.
std::string shortened(const std::string &text)
{
    constexpr size_t longest_shown = 60;
    if (text.size() <= longest_shown) return printable(text);
    size_t length = longest_shown;
    while (length > longest_shown - 3 && (static_cast<unsigned char>(text[length]) & 0xc0) == 0x80)
        length--;
    return printable(text.substr(0, length)) + "...";
}

std::string string_literal(const std::string &bytes)
{
    return "'" + escaped(bytes, Style::literal) + "'";
}

bool is_utf8(const std::string &text)
{
    for (std::string_view rest = text; !rest.empty();) {
        const size_t length =
            wire::character_length(reinterpret_cast<const unsigned char *>(rest.data()), rest.size());
        if (length == 0) return false;
        rest.remove_prefix(length);
    }
    return true;
}

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
