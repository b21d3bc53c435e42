// SPDX-License-Identifier: MIT
//
// See json.h.
#include "json.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "text.h"
#include "wire/printable.h"

namespace {

// Of a character that is obeyed; those have up to three bytes.
std::string code_escape(const unsigned char *character, size_t length)
{
    char text[8];
    std::snprintf(text, sizeof text, "\\u%04x", wire::code_of(character, length) & 0xffffu);
    return text;
}

std::string escaped(std::string_view character)
{
    constexpr const char *with_letters = "\"\\\b\f\n\r\t";
    const char *found = character[0] == '\0' ? nullptr : std::strchr(with_letters, character[0]);
    if (found != nullptr) return {'\\', "\"\\bfnrt"[found - with_letters]};
    const auto *bytes = reinterpret_cast<const unsigned char *>(character.data());
    return wire::is_obeyed(bytes, character.size()) ? code_escape(bytes, character.size()) : std::string(character);
}

// Could bytes go on to a character? Then they are replaced together.
bool begins_character(const std::string &bytes)
{
    const std::string whole = bytes + "\x80\x80\x80";
    return wire::character_length(reinterpret_cast<const unsigned char *>(whole.data()), whole.size()) > bytes.size();
}

// Of bytes that do not begin with a character: those that U+FFFD replaces.
size_t broken_length(std::string_view bytes)
{
    size_t length = 1;
    while (length < bytes.size() && begins_character(std::string(bytes.substr(0, length + 1))))
        length++;
    return length;
}

} // namespace

Json::Json(const std::string &text) : text_("\"")
{
    for (std::string_view rest = text; !rest.empty();) {
        size_t length = wire::character_length(reinterpret_cast<const unsigned char *>(rest.data()), rest.size());
        text_ += length > 0 ? escaped(rest.substr(0, length)) : "\xef\xbf\xbd";
        if (length == 0) length = broken_length(rest);
        rest.remove_prefix(length);
    }
    text_ += '"';
}

// The fewest digits that read back, always with a point or an exponent.
Json::Json(double value)
{
    const double size = std::fabs(value);
    const bool is_plain = size == 0 || (size >= 1e-4 && size < 1e15);
    char text[64];
    const auto format = is_plain ? std::chars_format::fixed : std::chars_format::scientific;
    text_.assign(text, std::to_chars(text, text + sizeof text, value, format).ptr);
    if (text_.find_first_of(".e") == std::string::npos) text_ += ".0";
}

Json Json::of_json(const std::string &json)
{
    Json value;
    value.text_ = json;
    return value;
}

Json Json::of_bytes(const std::string &bytes)
{
    if (is_utf8(bytes)) return bytes;
    return JsonObject().add("hex", hex_digits(bytes));
}

JsonObject &JsonObject::add(const std::string &name, const Json &value)
{
    members_ += (members_.empty() ? "" : ",") + Json(name).text() + ":" + value.text();
    return *this;
}

JsonArray &JsonArray::add(const Json &value)
{
    elements_ += (elements_.empty() ? "" : ",") + value.text();
    return *this;
}
