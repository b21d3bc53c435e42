// SPDX-License-Identifier: MIT
//
// What ka call was told on its command line, and how that is done: arguments are prepared, a host is started, called
// and ended, results, times and errors are shown.
#ifndef KA_TOOL_CALLING_H
#define KA_TOOL_CALLING_H

#include <cstdint>
#include <string>
#include <vector>

struct CallWishes {
    std::string module;
    std::string function;
    std::vector<std::string> arguments;
    std::string arguments_file;
    std::string layout = "native";
    double deadline_s = 30;
    std::string callback = "const:0";
    int32_t segment_bytes = 0; // 0: as many as the call needs
    int32_t scratch_bytes = 1 << 16;
    int32_t trace_level = 0;
    size_t repeat = 0; // 0: one call, without timing
    bool raw = false;
    bool json = false;
};

// The exit status. Words of the command line may still have their marks (command_words.h).
int run_call(CallWishes &wishes);

#endif
