// SPDX-License-Identifier: MIT
//
// The words of the command line on their way through the command-line library, which would give some of them a
// meaning of its own.
#ifndef KA_TOOL_BASE_WORDS_H
#define KA_TOOL_BASE_WORDS_H

#include <string>
#include <vector>

// In the reverse order, as the library takes them. For call and debug, those after a first "--", which is left out,
// are marked.
std::vector<std::string> command_words(int argc, char **argv);

// Takes the mark off; true when there was one.
bool take_mark(std::string &word);

#endif
