/* SPDX-License-Identifier: MIT
 *
 * Descriptors that are kept from call to call. The program may have closed them, and opened others under their
 * numbers: so each is known by its file. */
#ifndef KA_CALLER_OWNED_H
#define KA_CALLER_OWNED_H

#include "host.h"

void note_owned(ka_host *host, t_OWNED which); /* after each opening */
bool is_owned(ka_host *host, t_OWNED which);

/* Forgets what is not ours any more, without closing it. */
void disown_lost(ka_host *host);

/* Opens what shows the process. */
void open_views(ka_host *host);
bool owns_process(ka_host *host);

/* Opens a view anew that is lost alone, before its text is believed. True when it was. */
bool regain_view(ka_host *host, t_OWNED which);

#endif
