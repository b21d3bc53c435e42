// SPDX-License-Identifier: MIT
//
// Completion of command lines: scripts for shells, and the answers that they ask ka for.
#ifndef KA_TOOL_COMPLETION_H
#define KA_TOOL_COMPLETION_H

#include <string>
#include <vector>

namespace CLI {
class App;
}

// Declares the subcommand completion; once it is parsed it runs, and stores its exit status.
void add_completion_command(CLI::App &app, int &exit_status);

// What a shell's script asks: it calls "ka complete WORD..." with the words behind ka up to the cursor, the last of
// them unfinished. The answer's first line is "words", "files" or "executables"; the lines behind it are words that
// could stand there, each with a tab and a description.
std::string completion_answer(const CLI::App &app, const std::vector<std::string> &words);

#endif
