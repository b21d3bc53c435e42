// SPDX-License-Identifier: MIT
//
// See text.h.
#include "text.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "wire/printable.h"

namespace {

enum class Style { line, lines, literal };

std::string byte_text(char byte)
{
    return "\\x" + hex_digits({byte});
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

} // namespace

std::string printable(const std::string &text)
{
    return escaped(text, Style::line);
}

std::string printable_lines(const std::string &text)
{
    return escaped(text, Style::lines);
}

std::vector<std::string> shown_lines(const std::string &text)
{
    std::vector<std::string> lines;
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        lines.push_back(printable(text.substr(begin, end - begin)));
        begin = end + 1;
    }
    while (lines.size() > 1 && lines.back().empty())
        lines.pop_back();
    return lines;
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

std::string hex_digits(const std::string &bytes)
{
    std::string digits;
    for (const char byte : bytes) {
        char pair[4];
        std::snprintf(pair, sizeof pair, "%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
        digits += pair;
    }
    return digits;
}

std::string hex_number(uint64_t number)
{
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(number));
    return text;
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
