// SPDX-License-Identifier: MIT
//
// How a host is to be started: command line and everything that it inherits. The child is set up by system calls, not
// by the C library's wrappers, so that signals 32 and 33 can be ignored or blocked as well.
#ifndef TESTS_HOST_START_H
#define TESTS_HOST_START_H

#include <linux/filter.h>
#include <sys/resource.h>
#include <sys/types.h>

#include <csignal>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace harness {

struct Start {
    std::string module = {};                                // name of a ka_module, or a path
    std::optional<std::vector<std::string>> arguments = {}; // not given: the block's identifier and layout
    std::optional<std::string> name = {};                   // argv[0]; not given: the module's path
    std::vector<std::string> environment = {};              // NAME=value, added to the test's own

    std::vector<int> ignored = {}; // signals inherited as ignored; all others have their default action
    std::vector<int> blocked = {SIGUSR2};
    std::vector<int> descriptors = {};    // these numbers, below 200, are open on /dev/null, besides 0, 1 and 2
    std::optional<rlim_t> open_max = {};  // soft limit on descriptors, set after those were opened
    std::vector<sock_filter> filter = {}; // see below
    int output = -1;                      // standard output; -1: the test's own
    bool dies_with_test = true;           // SIGKILL when the process that started it ends
};

// Filters of the 32-bit host's system calls.
std::vector<sock_filter> without_close_range(); // the call is unknown, as on an old kernel
std::vector<sock_filter> refused_close_range(); // the call is not allowed, as in some containers
std::vector<sock_filter> without_folders();     // no folder can be listed, as without /proc; no close_range either
std::vector<sock_filter> killed_by_group_signals(); // kill() of a process id of 0 or below ends the host by SIGSYS

// The file of a module made with ka_module; a name with a slash is taken as it is.
std::string module_path(const std::string &module);

// The process, running the module, and the reading end of its standard error. Throws when it cannot be executed.
// traced: it stops before its first instruction, for ptrace.
struct Started {
    pid_t pid;
    int errors;
};
Started start(const Start &how, const std::string &default_argument, bool traced = false);

} // namespace harness

#endif
