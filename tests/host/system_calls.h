// SPDX-License-Identifier: MIT
//
// A host's system calls, in order, from its start to its end: for the order of steps that leave no traces to
// look at.
#ifndef TESTS_HOST_SYSTEM_CALLS_H
#define TESTS_HOST_SYSTEM_CALLS_H

#include <string>
#include <vector>

#include "host/process_state.h"
#include "host/start.h"

namespace harness {

struct Life {
    // One line each, from the first change of the signal mask on, for what the host does about signals, descriptors,
    // its block and its output. Equal lines in a row are one.
    //   block 2 10          these are added to the mask
    //   look 5              the action of a signal is read
    //   default 5           SIG_DFL, no mask, no flag
    //   handle 12 restart   a handler, no mask, SA_RESTART alone
    //   close               descriptors are closed; left out once the segment is attached
    //   attach, detach      the segment
    //   write TEXT          on descriptor 2
    //   wait 2 10           sigsuspend with that mask
    //   kill, raise         a signal is sent
    //   exit 0
    std::vector<std::string> steps;
    int closes = 0; // system calls that close descriptors, before the segment is attached
    End end;
};

// A host's system calls from the end of one sigsuspend to the beginning of the next, everything included.
// The host is idle, or waits for the answer to a call-back; it gets a SIGUSR2 and is left running as it was before.
int system_calls_until_next_wait(pid_t host);

// Runs the module; when it waits for the first time it gets a SIGTERM.
Life watch(const Start &how, const std::string &argument);

} // namespace harness

#endif
