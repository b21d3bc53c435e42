// SPDX-License-Identifier: MIT
//
// Writing and reading the notation of records.
#include "model/notation.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <stdexcept>

namespace model {

static std::string sign_name(uint8_t pos)
{
    if (pos == DEC_POSITIVE) return "+";
    if (pos == DEC_NEGATIVE) return "-";
    return "(" + std::to_string(pos) + ")";
}

static std::string show_digits(const t_DECIMAL &x, int count)
{
    std::string text;
    for (int i = 0; i < count; i++)
        text += (i > 0 ? "," : "") + std::to_string(x.dec_dgts[i]);
    return text;
}

std::string show(const t_DECIMAL &x)
{
    if (x.dec_pos == DEC_NULL) return "null";
    return std::to_string(x.dec_exp) + ":" + sign_name(x.dec_pos) + ":" +
           (x.dec_ndgts > DEC_DIGITS || x.dec_ndgts < 0 ? "(" + std::to_string(x.dec_ndgts) + " digits)"
                                                        : show_digits(x, x.dec_ndgts));
}

std::string show(const std::vector<uint8_t> &bytes)
{
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string text;
    for (const uint8_t byte : bytes) {
        if (!text.empty()) text += ' ';
        text += {hex[byte >> 4], hex[byte & 15]};
    }
    return text;
}

std::string show(double value)
{
    char text[64];
    return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
}

std::string show_raw(const t_DECIMAL &x)
{
    return "exp " + std::to_string(x.dec_exp) + " pos " + std::to_string(x.dec_pos) + " ndgts " +
           std::to_string(x.dec_ndgts) + " bytes " + show_digits(x, DEC_DIGITS);
}

static int read_number(std::string_view text, std::string_view whole)
{
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        throw std::invalid_argument("not a record: '" + std::string(whole) + "'");
    return value;
}

Notation read_notation(std::string_view text)
{
    if (text == "null") return {0, DEC_NULL, {}};
    const size_t colon = text.find(':');
    if (colon == std::string_view::npos || text.size() < colon + 3 || text[colon + 2] != ':')
        throw std::invalid_argument("not a record: '" + std::string(text) + "'");
    Notation x = {read_number(text.substr(0, colon), text), text[colon + 1] == '-' ? DEC_NEGATIVE : DEC_POSITIVE, {}};
    std::string_view digits = text.substr(colon + 3);
    while (!digits.empty()) {
        const size_t comma = std::min(digits.find(','), digits.size());
        x.digits.push_back(read_number(digits.substr(0, comma), text));
        digits.remove_prefix(std::min(comma + 1, digits.size()));
    }
    return x;
}

t_DECIMAL read_record(std::string_view text)
{
    const Notation parts = read_notation(text);
    if (parts.digits.size() > static_cast<size_t>(DEC_DIGITS))
        throw std::invalid_argument("too many digits: '" + std::string(text) + "'");
    t_DECIMAL x = {};
    x.dec_exp = static_cast<int16_t>(parts.exp);
    x.dec_pos = static_cast<uint8_t>(parts.pos);
    x.dec_ndgts = static_cast<int8_t>(parts.digits.size());
    memset(x.dec_dgts, 0xEE, sizeof x.dec_dgts);
    std::transform(parts.digits.begin(), parts.digits.end(), x.dec_dgts,
                   [](int digit) { return static_cast<uint8_t>(digit); });
    return x;
}

std::vector<uint8_t> read_bytes(const std::vector<std::string> &words)
{
    std::vector<uint8_t> bytes;
    for (const std::string &word : words)
        bytes.push_back(static_cast<uint8_t>(std::stoul(word, nullptr, 16)));
    return bytes;
}

} // namespace model
