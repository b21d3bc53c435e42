// SPDX-License-Identifier: MIT
//
// The scripts that make shells ask ka what may follow on its command line.
#ifndef KA_TOOL_CLI_COMPLETION_SCRIPTS_H
#define KA_TOOL_CLI_COMPLETION_SCRIPTS_H

#include <string>

// shell: bash, zsh or fish.
const char *completion_script(const std::string &shell);

#endif
