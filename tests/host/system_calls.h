// SPDX-License-Identifier: MIT
//
// What a host asks of the kernel, in order, from its start to its end: for the order of steps that leave nothing
// behind to look at.
#ifndef TESTS_HOST_SYSTEM_CALLS_H
#define TESTS_HOST_SYSTEM_CALLS_H

#include <string>
#include <vector>

#include "host/process_state.h"
#include "host/start.h"

namespace harness {

struct Life {
    // One line each, from the first change of the signal mask on, for what the host does about signals, descriptors,
    // its block and its output:
    //   block 2 10         adds to the mask          look 5         reads an action
    //   default 5          SIG_DFL, no mask or flag  handle 12 restart   an own handler, no mask, SA_RESTART only
    //   close              descriptors, before attach           attach, detach      the segment
    //   write TEXT         on descriptor 2           wait 2 10           sigsuspend with that mask
    //   kill, raise        a signal sent             exit 0
    // Lines that follow each other and are equal are one.
    std::vector<std::string> steps;
    int closes = 0; // system calls that close descriptors, before the segment is attached
    End end;
};

// Runs the module; when it waits for the first time it gets a SIGTERM.
Life watch(const Start &how, const std::string &argument);

} // namespace harness

#endif
