// SPDX-License-Identifier: MIT
//
// Whether a text may be sent to a terminal: written from the definition of UTF-8, sharing nothing with ka.
#ifndef TESTS_KA_TERMINAL_TEXT_H
#define TESTS_KA_TERMINAL_TEXT_H

#include <cstdint>
#include <cstdio>
#include <string>

// The character at a place, and its length in bytes; length 0 when there is none.
struct Character {
    uint32_t code;
    size_t length;
};

inline Character character_at(const std::string &text, size_t at)
{
    struct Form {
        uint32_t mask, bits, least;
        size_t length;
    };
    static constexpr Form forms[] = {
        {0x80, 0x00, 0, 1}, {0xe0, 0xc0, 0x80, 2}, {0xf0, 0xe0, 0x800, 3}, {0xf8, 0xf0, 0x10000, 4}};
    const auto byte = [&](size_t i) { return static_cast<uint32_t>(static_cast<unsigned char>(text[i])); };
    for (const Form &form : forms) {
        if ((byte(at) & form.mask) != form.bits || at + form.length > text.size()) continue;
        uint32_t code = byte(at) & ~form.mask;
        for (size_t i = 1; i < form.length; i++) {
            if (byte(at + i) >> 6 != 2) return {0, 0};
            code = code << 6 | (byte(at + i) & 0x3f);
        }
        const bool is_none = code < form.least || code > 0x10ffff || (code >= 0xd800 && code < 0xe000);
        return is_none ? Character{0, 0} : Character{code, form.length};
    }
    return {0, 0};
}

// Controls but line end and tab; what ends a line or turns the writing direction without being seen.
inline bool is_harmful(uint32_t code)
{
    if (code == '\n' || code == '\t') return false;
    const bool is_control = code < 0x20 || (code >= 0x7f && code < 0xa0);
    return is_control || (code >= 0x2028 && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069);
}

// What a terminal should not get of it, and where; empty when there is nothing.
inline std::string fault_on_terminal(const std::string &text)
{
    char fault[80] = "";
    for (size_t at = 0; at < text.size() && fault[0] == '\0';) {
        const Character character = character_at(text, at);
        if (character.length == 0)
            std::snprintf(fault, sizeof fault, "byte %zu, 0x%02x, is not UTF-8", at,
                          static_cast<unsigned>(static_cast<unsigned char>(text[at])));
        else if (is_harmful(character.code))
            std::snprintf(fault, sizeof fault, "U+%04X at byte %zu", static_cast<unsigned>(character.code), at);
        at += character.length;
    }
    return fault;
}

#endif
