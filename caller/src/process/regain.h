/* SPDX-License-Identifier: MIT
 *
 * The descriptors of the process where the program has closed them. */
#ifndef KA_CALLER_REGAIN_H
#define KA_CALLER_REGAIN_H

#include "host/host.h"

/* Asked once a call and a call-back. Opens all anew where the process is lost; false when it cannot be found again:
   it is known by its number as long as it is an unreaped child. */
bool regain_process(ka_host *host);

#endif
