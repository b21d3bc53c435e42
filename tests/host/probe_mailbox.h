// SPDX-License-Identifier: MIT
//
// The record through which the test and the module probe talk in the segment. Its place is that of descriptors of
// calls with more than 61 arguments, so it is in no test's way.
#ifndef TESTS_HOST_PROBE_MAILBOX_H
#define TESTS_HOST_PROBE_MAILBOX_H

#include <stdint.h>

enum { mailbox_offset = 2048 };

enum { MAILBOX_EMPTY = 0, MAILBOX_FULL = 1, MAILBOX_DONE = 2 };

//                       value            out
enum {
    PROBE_RETURN = 0, // return code     -           the call ends
    PROBE_BASE = 1,   // -               distance of u_get_baseptr from itself: 0
    PROBE_ARGC = 2,   // -               u_get_argc
    PROBE_ARG = 3,    // index           type, ref, offset in the segment (-1: null), maxlen, elsz, elcnt, address (2)
    PROBE_UNREF = 4,  // index           u_unref_arg
    PROBE_SCRATCH = 5,     // size            offset of dll_scratch in the segment, -1 for null
    PROBE_CALLBACK = 6,    // value           dll_callback
    PROBE_OWN_ACTION = 7,  // 1 or 0          puts an action of the module's own on SIGUSR2, or the host's back
    PROBE_ACTION_NOW = 8,  // -               1: its own is in force, 2: one of the host's kind, 0: neither
    PROBE_WRITE = 9,       // descriptor      errno of writing one byte, 0 when that works
    PROBE_RAISE = 10,      // signal          raise
    PROBE_ADDRESS = 11,    // -               u_get_baseptr as a number, in two words
    PROBE_LAYOUT = 12,     // selector        sets the layout in force; only in the module probe_layout
    PROBE_BLOCK = 13,      // signal          blocks it
    PROBE_IGNORE = 14,     // signal          ignores it
    PROBE_HANDLE = 15,     // signal          installs a handler of the module's own that counts
    PROBE_HANDLED = 16,    // -               signals counted so far
    PROBE_KILL = 17,       // process id      kill with signal 0, which reaches no process
    PROBE_WRITE_MUCH = 18, // count          writes so many characters on standard error
    PROBE_MASK = 19,       // signal          a handler that is installed from now on blocks it too while it runs
    PROBE_DEFAULT = 20,    // signal          1: its action is the default with empty mask and no flags, 0: it is not
    PROBE_FORK = 21,       // exit status     exit status of a child that the function forks and waits for
    PROBE_CALLBACK_IN_THREAD = 22, // value  dll_callback on a thread that begins and ends in this command
    PROBE_FORK_IN_THREAD = 23,     // signal     exit status of a child that a thread forks and that raises the signal
    PROBE_UNBLOCK = 24,            // signal     unblocks it
    PROBE_FLAGS = 25,              // flags      sa_flags of handlers that are installed from now on
    PROBE_LOOK = 26,               // signal     installs a handler that leaves in the mailbox what it has interrupted
    PROBE_SET_STACK = 27,          // size       sets an alternate stack of that size; 0: none
    PROBE_STACK_NOW = 28, // -          size of the alternate stack in force, negative when handlers disarm it
    PROBE_ROUNDING = 29,  // x87 word   sets it, and an inexact exception that has happened
    PROBE_WRAP = 30,      // -          puts a handler on SIGUSR2 that counts, calls the host's and counts again
    PROBE_ARITHMETIC = 31 // -          as it is: x87 control word, x87 status word, the control word of SSE
};

// What a handler of the module's finds: of what it has interrupted, and around itself.
struct Interrupted {
    uint64_t mask;        // that comes into force again when it returns
    uint64_t mask_at_end; // of the handler itself
    uint32_t x87;
    uint32_t sse;
    int32_t on_alternate_stack;
    int32_t alternate_stack; // its size
    int32_t times;
    int32_t reserved; // the same size in both word sizes
};

struct Mailbox {
    int32_t state;
    int32_t command;
    int32_t value;
    int32_t out[8];
    int32_t handled; // signals counted so far, to be read at any time
    struct Interrupted interrupted;
};

#endif
