// SPDX-License-Identifier: MIT
//
// SIGINT and SIGTERM as a file descriptor, so that an interrupted call ends its host before the command ends.
#ifndef KA_TOOL_BASE_INTERRUPTION_H
#define KA_TOOL_BASE_INTERRUPTION_H

// Readable once one of them has come. A signal that the command inherits as ignored stays ignored. -1 when there is
// none to be had: then the signals end the command at once, and the kernel ends the host.
int open_interruption_fd();

// Takes one signal from it; its number, 0 when none has come.
int take_interruption(int fd);

#endif
