// SPDX-License-Identifier: MIT
//
// What ka call was told on its command line, and how that is done: arguments are prepared, a host is started, called
// and ended, results, times and errors are shown.
#ifndef KA_TOOL_CALLING_H
#define KA_TOOL_CALLING_H

#include <string>
#include <vector>

#include "host_options.h"
#include "preparation.h"

struct CallWishes : Request, HostWishes {
    std::string module;
    size_t repeat = 0; // 0: one call, without timing
    bool json = false;
    std::vector<std::string> option_names; // for the one that a misspelt word was meant to be
};

// The exit status. Words of the command line may still have their marks (command_words.h).
int run_call(CallWishes &wishes);

#endif
