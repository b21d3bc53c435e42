/* SPDX-License-Identifier: MIT
 *
 * The guard of a command under which a host runs: a child of the library that ends the command and the host where the
 * program dies without doing so. The kernel does that for a host that is the program's own child; a command may take
 * no notice, and the host is not told. */
#ifndef KA_CALLER_GUARD_H
#define KA_CALLER_GUARD_H

#include "host/host.h"

/* Guards the command and its group; once the host is known that is in another group, it too. 0 or an errno. */
int start_guard(ka_host *host);

/* After the end of both. */
void end_guard(ka_host *host);

#endif
