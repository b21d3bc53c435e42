// SPDX-License-Identifier: MIT
//
// Vector files: expected values as text, tests/vectors/NAME.vec.
//
//   [Suite.case]                            starts a test of that name; the lines below belong to it
//   decadd 1:+:1 -7:+:50 -> 0 1:+:1         operation, arguments, what it must answer
//   deccvasc "1.5xy" -> -1213 null          text is in quotes; # starts a comment outside of them
//
// Every [Suite.case] becomes a GoogleTest case; a failure line carries file and line of the vector.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace model {

using Words = std::vector<std::string>;

// Performs an operation on its arguments and answers in words, in the notation of the vector files.
using Operation = std::function<std::string(const Words &)>;
using Operations = std::map<std::string, Operation>;

// Registers the cases of the files; to be called before the tests run, from the initialiser of a static object.
// A file that cannot be read, or has no case, becomes a failing test.
bool register_vectors(const std::vector<std::string> &names, const Operations &operations);

std::string quoted(const std::string &text);

} // namespace model
