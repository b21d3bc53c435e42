// SPDX-License-Identifier: MIT
//
// The examples in the help of a subcommand, each a line without its "ka".
#ifndef TESTS_KA_HELP_EXAMPLES_H
#define TESTS_KA_HELP_EXAMPLES_H

#include "ka/command.h"

std::vector<std::string> help_examples(const std::string &subcommand);

// Runs one in a shell; both streams are in out.
Outcome run_example(const std::string &words, const std::string &directory);

#endif
