// SPDX-License-Identifier: MIT
//
// The lines that were typed into ka shell, in a file: $XDG_STATE_HOME/ka/history, ~/.local/state/ka/history without
// it. Only its owner can read it. Sessions at the same time add to it one line each; when it has grown to twice the
// lines that are kept, or half the bytes, the next session cuts it. What is not a regular file, or is longer, is left
// alone.
#ifndef KA_TOOL_SHELL_HISTORY_H
#define KA_TOOL_SHELL_HISTORY_H

#include <string>
#include <vector>

inline constexpr size_t history_lines = 1000;
inline constexpr long history_bytes = 1 << 20;

// Empty when the environment names no place for it.
std::string history_file();

// The last lines, the oldest first; none when there is no such file.
std::vector<std::string> read_history(const std::string &file);

// Makes the file and its folders when they are missing. A history that cannot be written is left out.
void add_to_history(const std::string &file, const std::string &line);

#endif
