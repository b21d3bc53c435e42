// SPDX-License-Identifier: MIT
//
// What every number, name and message means that hosts, modules, the libraries and ka produce.
#ifndef KA_TOOL_EXPLANATIONS_H
#define KA_TOOL_EXPLANATIONS_H

#include <climits>
#include <span>
#include <string>
#include <vector>

enum { NO_NUMBER = INT_MIN };

struct Explanation {
    const char *layer; // where it is seen: "return code of a call"
    int number;        // or NO_NUMBER
    const char *name;  // its constant, or empty
    // Messages as they are printed, one to a line, without line ends; %s stands for any text.
    const char *messages;
    const char *meaning;
    const char *cause;
    const char *remedy;
};

// In an order that suits a reader. The others are those of the first that the caller's library says, and those that
// compiler, linker and loader say.
std::span<const Explanation> explanations();
std::span<const Explanation> library_explanations();
std::span<const Explanation> build_explanations();

// lookup.cpp: what explains a line: a number, a name, or a message with whatever stands around it. What says most
// comes first.
std::vector<const Explanation *> look_up(const std::string &line);
bool is_number(const std::string &text);

#endif
