/* SPDX-License-Identifier: MIT
 *
 * The child until it is the host. It may call async-signal-safe functions only. */
#ifndef KA_CALLER_CHILD_H
#define KA_CALLER_CHILD_H

#include <sys/types.h>

#include "host/host.h"

enum { ARGUMENT_SIZE = 32 }; /* segment identifier and layout, zero-terminated */

struct t_LAUNCH {
    const char *module;
    pid_t parent;
    const t_PIPES *pipes;
    int error_fd; /* becomes its standard error, unless it is -1 */
    char **words; /* of the command under which it runs, with room for the argument; or null */
    int32_t word_count;
    char **environment; /* null for that of the program */
    const char *directory;
};

/* Comes back through the pipe of a child that executes nothing. */
struct t_NOT_EXECUTED {
    int error; /* an errno */
    bool of_directory;
};

__attribute__((noreturn)) void become_host(const t_LAUNCH *launch);

#endif
