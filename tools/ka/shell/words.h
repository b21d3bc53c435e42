// SPDX-License-Identifier: MIT
//
// A line of ka shell, taken apart:
//
//   add 2 40            words, separated by blanks
//   greet 'two words'   a quoted text is part of one word, and keeps its quotes and escapes
//   greet "two words"   double quotes hold a word together and are dropped
//   double [1, 2]       so do brackets, which stay
//   add $sum 1          a variable's value stands for its name, outside of quotes
//   # ...               where a word could begin, the rest of the line is a comment
#ifndef KA_TOOL_SHELL_WORDS_H
#define KA_TOOL_SHELL_WORDS_H

#include <map>
#include <string>
#include <string_view>
#include <vector>

// Values as they would be written on the line.
using Variables = std::map<std::string, std::string>;

using Words = std::vector<std::string>;

// The first word, which is a name, keeps its $. Throws Malformed: a quote or bracket is open, a variable is unknown.
Words words_of_line(std::string_view line, const Variables &variables);

// The characters that names of variables are made of.
bool is_name_character(char c);

// A variable's name for an argument of any name: what cannot be part of one becomes an underscore.
std::string variable_name(const std::string &argument);

#endif
