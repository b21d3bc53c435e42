/* SPDX-License-Identifier: MIT
 *
 * Traces a host from its first instruction to its end, in a thread of its own, so that the inspector can examine it
 * right before it dies. Only with an inspector; where tracing is forbidden, reports have no backtrace.
 *
 * Every signal of a traced process stops it until the tracer lets it go on: that is the price, paid once with every
 * call and every answer to a call-back. Nothing but the tracer's life holds the host: when the program is killed, the
 * kernel lets the host run on, with the signal for which it was stopped, to its own end. */
#ifndef KA_CALLER_TRACER_H
#define KA_CALLER_TRACER_H

#include "host/host.h"

/* Returns when the host, which does not run the module yet, is traced, or cannot be. */
void start_inspection(ka_host *host);

/* Has a host looked at that hangs, before it is ended. Bounded in time. */
void inspect_hanging(ka_host *host);

/* After the host's end. The text of the inspector, which the caller frees; null when it wrote nothing. */
char *finish_inspection(ka_host *host);

#endif
