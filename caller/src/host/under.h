/* SPDX-License-Identifier: MIT
 *
 * ka_options.under: the words of the command that runs the module, kept for every start. */
#ifndef KA_CALLER_UNDER_H
#define KA_CALLER_UNDER_H

#include "host.h"

/* Copies the words of the options, and puts the module's path behind them. */
int32_t take_under(ka_host *host);

void forget_under(ka_host *host);

#endif
