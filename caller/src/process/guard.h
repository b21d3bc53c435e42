/* SPDX-License-Identifier: MIT
 *
 * The guard of a command under which a host runs: a child of the library that ends the command and the host where the
 * program dies without doing so, or the thread to which a host belongs that waits fast. The kernel does that for a
 * host that is the program's own child; a command may take no notice, and the host is not told. */
#ifndef KA_CALLER_GUARD_H
#define KA_CALLER_GUARD_H

#include "host/host.h"

/* Guards the command and its group; once a host is known that is not the command, it too. 0 or an errno. */
int start_guard(ka_host *host);

/* The group's number is still that of the command's group, whether or not the command was waited for. */
bool guard_holds_group(const ka_host *host);

/* After the end of both. */
void end_guard(ka_host *host);

#endif
