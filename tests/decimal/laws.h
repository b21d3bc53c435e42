// SPDX-License-Identifier: MIT
//
// Helpers in which the laws of the operations are written.
#pragma once

#include <string>

#include "model/notation.h"

// Code and result of an operation of two operands, as one text.
template <auto operation>
std::string of_two(const t_DECIMAL &a, const t_DECIMAL &b)
{
    t_DECIMAL result;
    const int code = operation(&a, &b, &result);
    return std::to_string(code) + " " + model::show(result);
}

inline t_DECIMAL negated(t_DECIMAL x)
{
    decchs(&x);
    return x;
}
