// SPDX-License-Identifier: MIT
//
// The ways to try bytes. Each returns an empty string if the library did what it should, else a text for people: what
// was run, what was expected, what came.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace fuzz {

using Bytes = std::vector<uint8_t>;

// A field of characters read as a number, and of bytes loaded as a packed value.
std::string try_text(const Bytes &input);

// A program of operations on eight registers.
std::string try_program(const Bytes &input);

// The file of a module, sound or not.
std::string try_tables(const Bytes &input);
bool has_tables(const Bytes &input);

// Names of all operations of programs, and of those that the program carries out.
std::set<std::string> all_operations();
std::set<std::string> operations_of(const Bytes &input);

} // namespace fuzz
