// SPDX-License-Identifier: MIT
//
// What every number, name and message means that hosts, modules and the libraries produce, and what the exit statuses
// of ka mean.
#ifndef KA_TOOL_EXPLAIN_ROWS_H
#define KA_TOOL_EXPLAIN_ROWS_H

#include <climits>
#include <span>
#include <string>
#include <vector>

enum { NO_NUMBER = INT_MIN };

struct Explanation {
    const char *layer; // where it is seen: "return code of a call"
    int number;        // or NO_NUMBER
    const char *name;  // its constant, or empty
    // Messages as they are printed, one to a line, without line ends; %s stands for any text.
    const char *messages;
    const char *meaning;
    const char *cause;
    const char *remedy;
};

// All of them, in an order that suits a reader. The tests compare them with the constants of the public headers and
// the messages in the sources.
std::span<const Explanation> explanations();

// Its parts, one file each.
std::span<const Explanation> code_rows();    // what functions return
std::span<const Explanation> library_rows(); // what libkacall says: fail() in caller/src/host/error.cpp stores it
std::span<const Explanation> exit_rows();    // how a process ends
std::span<const Explanation> host_rows();    // what a host writes
std::span<const Explanation> build_rows();   // what compiler, linker and loader say

#endif
