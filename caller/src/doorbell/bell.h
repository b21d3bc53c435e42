/* SPDX-License-Identifier: MIT
 *
 * The bell in the descriptor of ka_wait_fd (wait_fd.h). */
#ifndef KA_CALLER_BELL_H
#define KA_CALLER_BELL_H

#include "host/host.h"

/* The descriptor becomes readable. Async-signal-safe; nothing where there is none. */
void ring_wait_fd(const ka_host *host);

void still_bell(ka_host *host);

#endif
