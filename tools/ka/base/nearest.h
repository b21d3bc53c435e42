// SPDX-License-Identifier: MIT
//
// The word that was meant by a misspelt one.
#ifndef KA_TOOL_BASE_NEAREST_H
#define KA_TOOL_BASE_NEAREST_H

#include <string>
#include <vector>

// The first of the nearest words, when it is near enough; else empty. Letter case does not count.
std::string nearest_word(const std::vector<std::string> &words, const std::string &misspelt);

#endif
