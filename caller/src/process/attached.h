/* SPDX-License-Identifier: MIT
 *
 * The process that has attached the segment: the host, whoever has started it. */
#ifndef KA_CALLER_ATTACHED_H
#define KA_CALLER_ATTACHED_H

#include "host/host.h"

/* A descriptor of it, with its number; -1 when there is none. */
int open_attached(const ka_host *host, pid_t *pid);

/* That of the record's process, which the program has closed; -1 when it cannot be found again. */
int reopen_host(const ka_host *host);

#endif
