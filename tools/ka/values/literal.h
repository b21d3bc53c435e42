// SPDX-License-Identifier: MIT
//
// An argument as it was written, before a type is decided:
//
//   42 -5 4.2 1e9    a number
//   'text'           a string; \' \\ \n \t \r and \xHH stand for a quote, a backslash and other characters
//   text             a word; what it means depends on who reads it
//   [1,2] ['a','b']  an array
//   'text':20        with room for 20 characters; so do arrays of strings
//   str:20           an empty string with room for 20
//   &...             any of these by reference
#ifndef KA_TOOL_VALUES_LITERAL_H
#define KA_TOOL_VALUES_LITERAL_H

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

// word: without quotes, a number or not. number: known to be one. integer, real: of that type in so many words.
enum class Notation { word, number, integer, real, string };

struct Element {
    Notation notation;
    std::string text; // without quotes and escapes
};

struct Literal {
    std::string written; // the whole of it, for messages
    bool by_reference = false;
    bool is_array = false;
    std::optional<int32_t> room; // of strings
    std::vector<Element> elements;
};

// Says what is wrong with an argument.
struct Malformed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// How text without quotes is read: a number, which ends at a comma, a blank, a colon or a bracket; or a text, which
// reaches to the end of the argument, in an array to the next comma or bracket.
enum class Unquoted { number, text };

// Throws Malformed.
Literal read_literal(const std::string &text, Unquoted unquoted);

#endif
