/* SPDX-License-Identifier: MIT
 *
 * The end of a host: asked for, or found. The process is waited for, the error says how it ended ("the host was
 * killed by SIGABRT ..."), and what belongs to it is released. The segment stays until the host is closed: it holds
 * the arguments that an error is reported with, a call that was built before the end, and the scratch area, for the
 * process that may be started next. */
#ifndef KA_CALLER_END_H
#define KA_CALLER_END_H

#include "host/host.h"

/* Ends the process, unless there is none, and releases what belongs to it. The segment stays, and the error. A
   process that cannot be ended is noted as left. */
void end_host(ka_host *host);

/* The same for a host that has failed; the class of its error. */
int32_t fail_and_end(ka_host *host);

/* The end of what a ka_cancel can meet: the class of its error. That is KA_CANCELLED, and the host has ended, where
   one has met it. */
int32_t settle_cancel(ka_host *host, int32_t status);

/* The command has ended under which the host was to run. */
int32_t fail_command(ka_host *host);

/* A host that was found dead. */
int32_t fail_dead(ka_host *host, const char *where);

void forget_last_end(t_LAST_END *last_end);
void forget_preparations(ka_host *host);

#endif
