// SPDX-License-Identifier: MIT
//
// INTEGER, REAL or STRING: the type that an element has by itself, or that a function wants, and its value in a type.
// An argument without a prototype has the type of all its elements together (arguments.cpp).
#ifndef KA_TOOL_VALUES_NUMBER_TYPE_H
#define KA_TOOL_VALUES_NUMBER_TYPE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ka/caller.h"
#include "literal.h"

// An element, which lives on, with the block's value type that it has by itself.
struct TypedElement {
    const Element &element;
    int32_t type;                  // 0 for a word that is not a number
    std::optional<t_DECIMAL> real; // its value, where that was read to find the type
};

using TypedElements = std::vector<TypedElement>;

TypedElements typed(const std::vector<Element> &elements);

// The type in which a function gets elements that suit it.
int32_t wanted_type(int32_t kind, const TypedElements &elements);

// How a word of type 0 is described.
std::string why_no_type(const std::string &text);

// Throw Malformed.
int32_t to_integer(const std::string &text);
t_DECIMAL to_real(const std::string &text);

#endif
