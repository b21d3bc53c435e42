// SPDX-License-Identifier: MIT
//
// Runs ka as a shell would.
#ifndef TESTS_KA_COMMAND_H
#define TESTS_KA_COMMAND_H

#include <gtest/gtest.h>

#include <string>
#include <sys/types.h>
#include <vector>

#include "caller/waiting.h"
#include "module_bits.h"

inline const std::string tasks_module = module_folder(CALLER_MODULES) + "/caller_module_tasks";

struct Outcome {
    int status; // exit status; minus the signal that ended it
    std::string out;
    std::string err;
};

// ka in the background.
struct Running {
    pid_t pid;
    int out;
    int err;
};

// input: its standard input; -1 for that of the tests.
Running start_ka(const std::vector<std::string> &words, int input = -1);
Outcome await_ka(const Running &running);
Outcome ka(const std::vector<std::string> &words);

// ka call of the test module.
Outcome call(std::vector<std::string> words);

// The host that a running ka has started, once there is one.
pid_t host_of(pid_t ka_pid);

// True once the process is gone, or but a zombie; false after ten seconds.
bool ends(pid_t pid);

bool segment_exists(int segment_id);
bool segment_vanishes(int segment_id); // false when it is still there after ten seconds
int segment_of(pid_t host);

// True once the signal is no longer pending at the host and it sleeps in its function.
bool sleeps_in_a_call(pid_t host);

#endif
