// SPDX-License-Identifier: MIT
//
// Compiled as C++17: the header is the first include, so it must compile alone, and every helper is used.
#include "ka/real.hpp"

static_assert(__cplusplus == 201703L, "this source is to be compiled as C++17");

std::string text_in_cpp17(std::string_view text)
{
    t_DECIMAL value;
    return ka::real_from_text(text, &value) == REAL_OK && !ka::RealLess()(value, value) ? ka::real_to_text(value)
                                                                                        : "";
}
