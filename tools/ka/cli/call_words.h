// SPDX-License-Identifier: MIT
//
// The words of a command line that name a call: MODULE FUNCTION [ARGUMENT...].
#ifndef KA_TOOL_CLI_CALL_WORDS_H
#define KA_TOOL_CLI_CALL_WORDS_H

#include <string>
#include <vector>

#include "call/request.h"

// Takes off their marks (base/words.h). Throws Malformed for an argument that begins like an option and is none: the
// nearest of those that there are is named.
void unmark_words(std::string &module, Request &request, const std::vector<std::string> &option_names);

#endif
