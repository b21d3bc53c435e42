/* SPDX-License-Identifier: MIT
 *
 * The end of a host that a command has started, and of the command. */
#ifndef KA_CALLER_COMMAND_H
#define KA_CALLER_COMMAND_H

#include <signal.h>

#include "host/host.h"

/* How a host ended that is not a child of this process: si_code 0 where the system does not say it. */
void look_how_it_ended(const ka_host *host, siginfo_t *info);

/* The host is dead: the command is given grace_ms to end by itself, and as much after SIGTERM. */
void end_command(ka_host *host);

/* Ends who has attached the segment all the same: a host that was found too late. One that has not done so yet finds
   no segment. */
void end_strays(ka_host *host);

#endif
