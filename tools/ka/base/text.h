// SPDX-License-Identifier: MIT
//
// Text from outside, made fit to be shown: names in files, what modules write, paths and words of users. What is not
// valid UTF-8, control characters, and characters that deceive the reader (they end a line, or turn the writing
// direction) become \xHH for each byte. All that ka prints of such text goes through here.
#ifndef KA_TOOL_BASE_TEXT_H
#define KA_TOOL_BASE_TEXT_H

#include <cstdint>
#include <string>
#include <vector>

// On one line.
std::string printable(const std::string &text);

// With its line ends and tabs.
std::string printable_lines(const std::string &text);

// Each of its lines; one at least, and no empty ones at the end.
std::vector<std::string> shown_lines(const std::string &text);

// On one line; of a long text its beginning.
std::string shortened(const std::string &text);

// In quotes, as an argument is written that stands for these very bytes: see values/literal.h.
std::string string_literal(const std::string &bytes);

// "00ff" for bytes, "0x1f" for a number.
std::string hex_digits(const std::string &bytes);
std::string hex_number(uint64_t number);

bool is_utf8(const std::string &text);

#endif
