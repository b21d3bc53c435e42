// SPDX-License-Identifier: MIT
//
// Records and fields as text, for the vector files and for failure lines.
//
//   1:+:12,34,50    exponent 1, positive, digits 12 34 50
//   0:-:            a zero with exponent 0 and a negative sign byte
//   null            any record whose sign byte says so
//   C1 0C 23        the bytes of a packed field
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "ka/decimal.h"

namespace model {

std::string show(const t_DECIMAL &x);
std::string show(const std::vector<uint8_t> &bytes);

// Shortest text that reads back as the same double; distinguishes -0 from 0.
std::string show(double value);

// The header and all eight digit bytes, for what must or must not have been written.
std::string show_raw(const t_DECIMAL &x);

// The parts of a record's notation; an accumulator may have nine digits. Throws std::invalid_argument, naming the
// text.
struct Notation {
    int exp;
    int pos;
    std::vector<int> digits;
};
Notation read_notation(std::string_view text);

// Digit bytes past the digits are filled with 0xEE.
t_DECIMAL read_record(std::string_view text);
std::vector<uint8_t> read_bytes(const std::vector<std::string> &words);

} // namespace model
