// SPDX-License-Identifier: MIT
//
// The text of each file in templates/; made from them by CMakeLists.txt.
#ifndef KA_TOOL_NEW_TEMPLATES_H
#define KA_TOOL_NEW_TEMPLATES_H

#include <string_view>
#include <vector>

struct Template {
    std::string_view name;
    std::string_view text;
};

extern const std::vector<Template> templates;

#endif
