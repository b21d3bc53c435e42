// SPDX-License-Identifier: MIT
//
// The options of the subcommands that start a host, and what the library makes of them.
#ifndef KA_TOOL_CLI_HOST_OPTIONS_H
#define KA_TOOL_CLI_HOST_OPTIONS_H

#include <cstdint>
#include <string>
#include <vector>

#include "call/error_output.h"
#include "ka/caller.h"

namespace CLI {
class App;
}

struct HostOptions {
    std::string layout = "native";
    std::string deadline = "30s";
    std::string callback = "const:0";
    int32_t segment_bytes = 0; // 0: what the subcommand finds right
    int32_t scratch_bytes = 1 << 16;
    int32_t trace_level = 0;
    bool raw = false;
    bool no_inspect = false;
    std::string under;                    // a command line
    std::vector<std::string> under_words; // the same, split
    std::vector<const char *> under_list; // the same, for the library
    ErrorOutput errors;                   // of the host, if its output is collected
};

// A text that can be read as a time.
void add_deadline_option(CLI::App *command, std::string &deadline, const std::string &purpose);
int32_t deadline_ms(const std::string &deadline);

// Those of the calls alone: without a deadline, and what else looks at the host. right_size says what a segment of 0
// bytes stands for.
void add_call_options(CLI::App *command, HostOptions &options, const std::string &right_size);

void add_host_options(CLI::App *command, HostOptions &options, const std::string &right_size);

// Throws Malformed (values/literal.h); option says where the rule was given.
void check_callback_rule(const std::string &option, const std::string &rule);

// options answers the call-backs, and must live as long as the host.
ka_options host_options(HostOptions &options, int32_t right_size, int cancel_fd);

#endif
