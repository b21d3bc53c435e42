// SPDX-License-Identifier: MIT
//
// Where this ka is installed.
#ifndef KA_TOOL_BASE_PREFIX_H
#define KA_TOOL_BASE_PREFIX_H

#include <string>

// The folder above that of the program, wherever it was moved: bin/, include/ and the libraries are in it.
std::string installation_prefix();

#endif
