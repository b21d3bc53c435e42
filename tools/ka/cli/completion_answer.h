// SPDX-License-Identifier: MIT
//
// What may be at the cursor of a command line: the answer to the scripts of completion_scripts.h.
#ifndef KA_TOOL_CLI_COMPLETION_ANSWER_H
#define KA_TOOL_CLI_COMPLETION_ANSWER_H

#include <string>
#include <vector>

namespace CLI {
class App;
}

// A shell's script calls "ka complete WORD..." with the words after ka up to the cursor, the last of
// them unfinished. The answer's first line is "words", "files" or "executables"; the lines after it are words that
// may be there, each with a tab and a description.
std::string completion_answer(const CLI::App &app, const std::vector<std::string> &words);

#endif
